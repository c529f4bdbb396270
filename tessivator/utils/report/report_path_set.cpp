#include "utils/report/report_path_set.h"

#include <cstring>
#include <new>

#include "common/qlib/qcksum.h"
#include "common/qlib/qerr.h"

TextDigest digestOfText(std::string_view text) {
  std::array<std::uint8_t, QCKSUM_SHA512_BIN_LEN> bytes{};
  if (qcksum_buf_sha256(text.data(), text.size(), bytes.data()) != QERR_OK) throw std::bad_alloc();
  TextDigest digest{};
  std::memcpy(digest.data(), bytes.data(), sizeof(digest));
  return digest;
}

namespace {

std::array<std::uint32_t, 4> keyOf(std::string_view path) {
  TextDigest key = digestOfText(path);
  key[2] |= 1U;
  key[3] = 0;
  return key;
}

}  // namespace

std::size_t ReportPathSet::place(const std::vector<Slot>& slots, const Slot& key) noexcept {
  // The table is never full, so that this ends at the key or at a free slot.
  for (std::size_t at = key[0];; ++at) {
    const Slot& slot = slots[at & (slots.size() - 1)];
    const bool same = slot[0] == key[0] && slot[1] == key[1] && slot[2] == key[2];
    if (same || (slot[0] | slot[1] | slot[2]) == 0) return at & (slots.size() - 1);
  }
}

std::uint32_t& ReportPathSet::valueOf(std::string_view path) {
  const Slot key = keyOf(path);
  if (used_ >= slots_.size() / 4 * 3) {
    std::vector<Slot> larger(slots_.size() * 2);
    for (const Slot& slot : slots_) {
      if (slot[2] != 0) larger[place(larger, slot)] = slot;
    }
    slots_.swap(larger);
  }
  Slot& slot = slots_[place(slots_, key)];
  if (slot[2] == 0) {
    slot = key;
    ++used_;
  }
  return slot[3];
}

std::uint32_t ReportPathSet::find(std::string_view path) const { return slots_[place(slots_, keyOf(path))][3]; }
