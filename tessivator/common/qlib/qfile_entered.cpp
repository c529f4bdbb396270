#include "common/qlib/qfile_entered.h"

namespace {

// The low bits of a slot: the count of ways without a link, then that of ways through links.
constexpr unsigned bits_of_count = 5;
constexpr std::uint64_t count_mask = (1U << bits_of_count) - 1;
constexpr std::uint64_t both_counts = count_mask << bits_of_count | count_mask;
constexpr std::size_t first_slots = 64;

static_assert(qfile_entered::most <= count_mask);

// Spreads every bit over all others (the finalizer of the splitmix64 generator).
std::uint64_t mixed(std::uint64_t value) noexcept {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EB;
  return value ^ (value >> 31U);
}

std::uint64_t key_of(const qfile_identity& directory) noexcept {
  const std::uint64_t volume = mixed(directory.volume + 0x9E3779B97F4A7C15);
  return mixed(directory.index_low ^ mixed(directory.index_high ^ volume)) & ~both_counts;
}

}  // namespace

// A used slot's counts are never both 0, so a key of 0 is a key like any other.
std::size_t qfile_entered::place_of(std::uint64_t key) const noexcept {
  const std::size_t last = slots_.size() - 1;
  std::size_t at = (key >> (2 * bits_of_count)) & last;
  while (slots_[at] != 0 && (slots_[at] & ~both_counts) != key) at = (at + 1) & last;
  return at;
}

void qfile_entered::grow() {
  std::vector<std::uint64_t> old(slots_.empty() ? first_slots : slots_.size() * 2);
  old.swap(slots_);
  for (const std::uint64_t slot : old) {
    if (slot != 0) slots_[place_of(slot & ~both_counts)] = slot;
  }
}

bool qfile_entered::contains(const qfile_identity& directory) const noexcept {
  return !slots_.empty() && slots_[place_of(key_of(directory))] != 0;
}

bool qfile_entered::enter(const qfile_identity& directory, bool through_link) {
  if (used_ >= slots_.size() / 4 * 3) grow();
  const std::uint64_t key = key_of(directory);
  std::uint64_t& slot = slots_[place_of(key)];
  const unsigned shift = through_link ? bits_of_count : 0;
  if ((slot >> shift & count_mask) == most) return false;
  if (slot == 0) {
    slot = key;
    ++used_;
  }
  slot += std::uint64_t{1} << shift;
  return true;
}
