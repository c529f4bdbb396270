// Positions of open files, reckoned in one place for every kind of storage.
#include <algorithm>
#include <limits>

#include "common/qlib/qfile_provider.h"

namespace {

// Where a seek by `offset` from `base` leads; false when that lies before the start or past the largest offset.
bool find_target(std::uint64_t base, std::int64_t offset, std::uint64_t& target) noexcept {
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  const bool backwards = offset < 0;
  const auto unsigned_offset = static_cast<std::uint64_t>(offset);
  const std::uint64_t distance = backwards ? ~unsigned_offset + 1 : unsigned_offset;
  if (backwards ? distance > base : base > largest || distance > largest - base) return false;
  target = backwards ? base - distance : base + distance;
  return true;
}

}  // namespace

qsys_status qfile_positioned::read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept {
  const qsys_status status = read_at(position_, buffer, size, done);
  if (status.ok()) position_ += done;
  return status;
}

qsys_status qfile_positioned::seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept {
  std::uint64_t base = 0;
  if (origin == QFILE_FROM_CURRENT) base = position_;
  if (origin == QFILE_FROM_END) {
    const qsys_status status = size(base);
    if (!status.ok()) return status;
  }
  if (!find_target(base, offset, position_)) return {QERR_INVALID, qsys_condition::none};
  position = position_;
  return {};
}

qsys_status qfile_positioned::view(std::byte* destination, std::size_t length, std::size_t& done) noexcept {
  constexpr std::size_t largest_read = std::size_t{1} << 30U;
  done = 0;
  while (done < length) {  // one round as a rule
    std::uint32_t got = 0;
    const auto part = static_cast<std::uint32_t>(std::min(length - done, largest_read));
    const qsys_status status = read_at(done, destination + done, part, got);
    if (!status.ok() || got == 0) return status;
    done += got;
  }
  return {};
}
