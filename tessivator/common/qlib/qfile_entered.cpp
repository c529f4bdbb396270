#include "common/qlib/qfile_entered.h"

namespace {

constexpr std::uint64_t count_bits = 31;
constexpr std::size_t first_slots = 64;

static_assert(qfile_entered::most <= count_bits);

// Spreads every bit over all others (the finalizer of the splitmix64 generator).
std::uint64_t mixed(std::uint64_t value) noexcept {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EB;
  return value ^ (value >> 31U);
}

std::uint64_t key_of(const qfile_identity& directory) noexcept {
  const std::uint64_t volume = mixed(directory.volume + 0x9E3779B97F4A7C15);
  return mixed(directory.index_low ^ mixed(directory.index_high ^ volume)) & ~count_bits;
}

}  // namespace

// A used slot's count is never 0, so that a key of 0 is a key like any other.
std::uint64_t& qfile_entered::slot_of(std::uint64_t key) noexcept {
  const std::size_t last = slots_.size() - 1;
  std::size_t at = (key >> 5U) & last;
  while (slots_[at] != 0 && (slots_[at] & ~count_bits) != key) at = (at + 1) & last;
  return slots_[at];
}

void qfile_entered::grow() {
  std::vector<std::uint64_t> old(slots_.empty() ? first_slots : slots_.size() * 2);
  old.swap(slots_);
  for (const std::uint64_t slot : old) {
    if (slot != 0) slot_of(slot & ~count_bits) = slot;
  }
}

bool qfile_entered::enter(const qfile_identity& directory) {
  if (used_ >= slots_.size() / 4 * 3) grow();
  const std::uint64_t key = key_of(directory);
  std::uint64_t& slot = slot_of(key);
  if ((slot & count_bits) == most) return false;
  if (slot == 0) {
    slot = key;
    ++used_;
  }
  ++slot;
  return true;
}
