// Module and level names, and the masks that are set and shown by name.
#include <algorithm>
#include <bit>
#include <limits>
#include <string>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qlog_state.h"
#include "common/qlib/qstr.h"

namespace {

using name_table = std::array<const qchar*, QLOG_MODULE_COUNT>;

// The other ids belong to components outside this library.
constexpr name_table make_module_names() {
  name_table names{};
  names.fill(u"MODULE-NAME-NOT-INITIALIZED");
  names[QLOG_QCKSUM] = u"QCKSUM";
  names[QLOG_QCONF] = u"QCONF";
  names[QLOG_QREG] = u"QREG";
  names[QLOG_QTIMER] = u"QTIMER";
  names[QLOG_QTPOOL] = u"QTPOOL";
  names[QLOG_BLIB] = u"BLIB";
  names[QLOG_CERT] = u"CERT";
  names[QLOG_CFG] = u"CFG";
  names[QLOG_INV] = u"INV";
  names[QLOG_KUMSG] = u"KUMSG";
  names[QLOG_PROG] = u"PROG";
  names[QLOG_SCAN] = u"SCAN";
  names[QLOG_SGN] = u"SGN";
  names[QLOG_UTL] = u"UTL";
  names[QLOG_CACHE] = u"CACHE";
  return names;
}

constexpr name_table module_names = make_module_names();
constexpr std::array<const qchar*, QLOG_LEVEL_COUNT> level_names{u"ERROR",  u"WARNING", u"SYSTEM", u"INFO",
                                                                 u"DETAIL", u"FNENTRY", u"FNEXIT"};
constexpr std::size_t logtype_bytes = 4096 * sizeof(qchar);

template <std::size_t Count>
std::int32_t index_of(const std::array<const qchar*, Count>& names, std::u16string_view name) noexcept {
  const auto at = std::find(names.begin(), names.end(), name);
  return at == names.end() ? -1 : static_cast<std::int32_t>(at - names.begin());
}

std::int32_t digit_of(qchar unit) noexcept {
  if (unit >= u'0' && unit <= u'9') return unit - u'0';
  if (unit >= u'a' && unit <= u'f') return unit - u'a' + 10;
  if (unit >= u'A' && unit <= u'F') return unit - u'A' + 10;
  return 16;
}

// An unsigned number in the base of its prefix, as strtoul reads it: leading white space and a sign are allowed, a
// value that is too large becomes the largest, no digits give 0.
bool parse_value(std::u16string_view text, std::uint32_t& value) noexcept {
  const std::u16string_view whole = text;
  text.remove_prefix(std::min(text.find_first_not_of(u" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with(u'-');
  if (negative || text.starts_with(u'+')) text.remove_prefix(1);
  std::uint32_t base = 10;
  if (text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X') && digit_of(text[2]) < 16) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with(u'0')) {
    base = 8;
  }
  std::uint64_t sum = 0;
  bool has_digit = false;
  for (; !text.empty() && digit_of(text[0]) < static_cast<std::int32_t>(base); text.remove_prefix(1)) {
    has_digit = true;
    sum = std::min<std::uint64_t>(sum * base + static_cast<std::uint32_t>(digit_of(text[0])), 0xFFFFFFFFU);
  }
  if (!text.empty() || (!has_digit && !whole.empty())) return false;
  value = static_cast<std::uint32_t>(negative ? 0 - sum : sum);
  return true;
}

// One item, up to its comma. `rest` is shown in the message.
qerr_t apply_item(std::u16string_view item, const qchar* rest) noexcept {
  const std::size_t equals = item.find(u'=');
  if (equals == std::u16string_view::npos) {
    (void)qstr_console_printf(u"Invalid format for logtype '%s'\n", rest);
    return QERR_INVALID;
  }
  if (!qlog_is_initialised()) return QERR_OK;
  const std::int32_t id = index_of(module_names, item.substr(0, equals));
  if (id < 0) return QERR_OK;
  std::uint32_t value = 0;
  if (!parse_value(item.substr(equals + 1), value)) return QERR_NOT_INITIALIZED;
  qlog_state.masks[static_cast<std::size_t>(id)].store(value, std::memory_order_relaxed);
  return QERR_OK;
}

}  // namespace

std::atomic<std::uint32_t> qlog_union_mask{0};

std::uint32_t qlog_level_bit_index(std::uint32_t level) noexcept {
  return level == 0 ? 0 : static_cast<std::uint32_t>(std::bit_width(level)) - 1;
}

void qlog_reset_masks() noexcept {
  for (auto& mask : qlog_state.masks) mask.store(QLOG_DEFAULT_MASK, std::memory_order_relaxed);
  (void)qlog_recompute_union();
}

qerr_t qlog_recompute_union() noexcept {
  std::uint32_t all = 0;
  for (const auto& mask : qlog_state.masks) all |= mask.load(std::memory_order_relaxed);
  qlog_union_mask.store(all, std::memory_order_relaxed);
  return QERR_OK;
}

std::uint32_t qlog_is_enabled(std::uint32_t level, std::uint32_t module_id) noexcept {
  if (!qlog_is_initialised()) return 0;
  const std::uint32_t index = qlog_level_bit_index(level);
  if (module_id >= QLOG_MODULE_COUNT || index >= QLOG_LEVEL_COUNT) return 1;
  return (qlog_module_mask(module_id) >> index) & 1U;
}

qerr_t qlog_set_module_bits(std::uint32_t module_id, std::uint32_t bits) noexcept {
  if (module_id >= QLOG_MODULE_COUNT) return QERR_ALL_BITS;
  qlog_state.masks[module_id].fetch_or(bits, std::memory_order_relaxed);
  return QERR_OK;
}

qerr_t qlog_clear_module_bits(std::uint32_t module_id, std::uint32_t bits) noexcept {
  if (module_id >= QLOG_MODULE_COUNT) return QERR_ALL_BITS;
  qlog_state.masks[module_id].fetch_and(~bits, std::memory_order_relaxed);
  return QERR_OK;
}

qerr_t qlog_set_logtype(const qchar* text) noexcept {
  if (text == nullptr) {
    qlog_reset_masks();
    return QERR_OK;
  }
  for (const qchar* rest = text;;) {
    const std::u16string_view all(rest);
    const std::size_t comma = all.find(u',');
    const qerr_t code = apply_item(all.substr(0, comma), rest);
    if (code != QERR_OK) return code;
    if (comma == std::u16string_view::npos) break;
    rest += comma + 1;
  }
  return qlog_recompute_union();
}

qerr_t qlog_get_logtype(qchar* buffer) noexcept {
  if (!qlog_is_initialised()) return QERR_ALL_BITS;
  if (buffer == nullptr) return QERR_ARG1;
  std::size_t used = 0;
  for (std::uint32_t id = 0; id < QLOG_MODULE_COUNT; ++id) {
    const int written = qstr_printf(buffer + used, logtype_bytes - used * sizeof(qchar), u"%s=0x%08x,",
                                    module_names[id], qlog_module_mask(id));
    if (written < 0) return QERR_BUFFER_SMALL;
    used += static_cast<std::size_t>(written);
  }
  buffer[used - 1] = 0;
  return QERR_OK;
}

std::int32_t qlog_module_index(const qchar* name) noexcept {
  return name == nullptr || !qlog_is_initialised() ? -1 : index_of(module_names, name);
}

std::int32_t qlog_level_index(const qchar* name) noexcept {
  return name == nullptr || !qlog_is_initialised() ? -1 : index_of(level_names, name);
}

const qchar* qlog_module_name(std::uint32_t id) noexcept {
  return id < QLOG_MODULE_COUNT && qlog_is_initialised() ? module_names[id] : nullptr;
}

const qchar* qlog_level_name(std::uint32_t index) noexcept {
  return index < QLOG_LEVEL_COUNT && qlog_is_initialised() ? level_names[index] : nullptr;
}

std::int32_t qlog_module_mask_by_name(const qchar* name) noexcept {
  const std::int32_t id = qlog_module_index(name);
  return id < 0 ? id : static_cast<std::int32_t>(qlog_module_mask(static_cast<std::uint32_t>(id)));
}

std::uint32_t qlog_module_mask(std::uint32_t id) noexcept {
  return qlog_state.masks[id].load(std::memory_order_relaxed);
}
