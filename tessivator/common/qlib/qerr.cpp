#include "common/qlib/qerr.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "common/qlib/qerr_table.h"
#include "common/qlib/qsys.h"

namespace {

constexpr std::uint32_t highest_crt_value = 14;

// Texts from the system, by code. The nodes of a map never move, so pointers to the texts stay valid.
using text_cache = std::map<qerr_t, std::u16string>;

std::atomic<bool> loaded{false};
std::mutex cache_lock;
// A plain pointer, owned from qerr_lib_init to qerr_lib_fini: at process exit static destructors run before the exit
// hook of the library, which still needs the cache.
text_cache* cache = nullptr;

template <class Row, std::size_t Count>
const Row* find_row(const std::array<Row, Count>& table, std::uint32_t key, std::uint32_t Row::*member) noexcept {
  const auto at = std::lower_bound(table.begin(), table.end(), key,
                                   [member](const Row& row, std::uint32_t value) { return row.*member < value; });
  return at != table.end() && (*at).*member == key ? &*at : nullptr;
}

const qchar* shown(const qchar* text) noexcept { return *text == 0 ? u"NO-ERROR-STRING" : text; }

// The cached system text; null when there is none or memory runs out. The lock covers the whole lookup, so two threads
// that miss at once share one entry.
const qchar* system_text(qerr_t code) noexcept try {
  const std::lock_guard lock(cache_lock);
  if (cache == nullptr) return nullptr;
  const auto found = cache->find(code);
  if (found != cache->end()) return shown(found->second.c_str());
  std::u16string text = qsys_message_text(code - QERR_SYSTEM_BASE);
  if (text.empty()) return nullptr;
  return cache->emplace(code, std::move(text)).first->second.c_str();
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace

qerr_t qerr_lib_init() noexcept {
  const std::lock_guard lock(cache_lock);
  if (cache == nullptr) cache = new (std::nothrow) text_cache;
  if (cache == nullptr) return QERR_ALL_BITS;
  loaded.store(true, std::memory_order_release);
  return QERR_OK;
}

void qerr_lib_fini() noexcept {
  loaded.store(false, std::memory_order_release);
  const std::lock_guard lock(cache_lock);
  const std::unique_ptr<text_cache> released(cache);
  cache = nullptr;
}

qerr_t qerr_from_win32(std::uint32_t value) noexcept {
  if (!loaded.load(std::memory_order_acquire)) return QERR_ALL_BITS;
  const qerr_translation* row = find_row(qerr_win32_table, value, &qerr_translation::value);
  return row != nullptr ? row->code : value + QERR_SYSTEM_BASE;
}

qerr_t qerr_from_crt(std::uint32_t value) noexcept {
  if (!loaded.load(std::memory_order_acquire)) return QERR_ALL_BITS;
  return value <= highest_crt_value ? value : value + QERR_SYSTEM_BASE;
}

const qchar* qerr_get_string(qerr_t code) noexcept {
  if (!loaded.load(std::memory_order_acquire)) return u"QERR_LIB_INIT_FAILURE";
  const qerr_message* row = find_row(qerr_messages, code, &qerr_message::code);
  if (row != nullptr) return shown(row->text);
  const qchar* text = code >= QERR_SYSTEM_BASE ? system_text(code) : nullptr;
  return text != nullptr ? text : u"OS defined error code";
}
