// Positions of open files, computed in one place for all storage.
#include <algorithm>
#include <cstring>
#include <limits>

#include "common/qlib/qfile_provider.h"

bool qfile_seek_target(std::uint64_t base, std::int64_t offset, std::uint64_t& target) noexcept {
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  const bool backwards = offset < 0;
  const auto unsigned_offset = static_cast<std::uint64_t>(offset);
  const std::uint64_t distance = backwards ? ~unsigned_offset + 1 : unsigned_offset;
  if (backwards ? distance > base : base > largest || distance > largest - base) return false;
  target = backwards ? base - distance : base + distance;
  return true;
}

// Reads on from `done` bytes to `length`; usually one round.
qsys_status qfile_positioned::read_rest(std::byte* destination, std::size_t length, std::size_t& done) noexcept {
  constexpr std::size_t largest_read = std::size_t{1} << 30U;
  while (done < length) {
    std::uint32_t got = 0;
    const auto part = static_cast<std::uint32_t>(std::min(length - done, largest_read));
    const qsys_status status = read_at(done, destination + done, part, got);
    if (!status.ok() || got == 0) return status;
    done += got;
  }
  return {};
}

qsys_status qfile_positioned::read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept {
  const Bytes ready = held();
  qsys_status status;
  if (!ready.empty()) {
    done = static_cast<std::uint32_t>(std::min<std::size_t>(size, ready.size()));
    std::memcpy(buffer, ready.data(), done);
  } else {
    status = read_at(position_, buffer, size, done);
  }
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
  if (!qfile_seek_target(base, offset, position_)) return {QERR_INVALID, qsys_condition::none};
  position = position_;
  return {};
}

qsys_status qfile_positioned::view(std::byte* destination, std::size_t length, std::size_t& done) noexcept {
  done = 0;
  const qsys_status kept = keep_block();
  if (!kept.ok()) return kept;
  done = std::min(length, block_size_);
  if (done != 0) std::memcpy(destination, block_.get(), done);
  return read_rest(destination, length, done);
}

// Without a block the file is read directly.
Bytes qfile_positioned::held() noexcept {
  if (position_ < largest_block) (void)keep_block();
  return position_ < block_size_ ? Bytes(block_.get(), block_size_).subspan(static_cast<std::size_t>(position_))
                                 : Bytes();
}

qsys_status qfile_positioned::read_start(std::byte* destination, std::size_t wanted, std::size_t& done) noexcept {
  return read_rest(destination, wanted, done);
}

std::uint64_t qfile_positioned::expected_size() noexcept {
  std::uint64_t bytes = 0;
  return size(bytes).ok() ? bytes : 0;
}

// Tried once: a file that was empty or unreadable then has no block.
qsys_status qfile_positioned::keep_block() noexcept {
  if (!block_wanted_) return block_status_;
  block_wanted_ = false;
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(expected_size(), largest_block));
  if (wanted == 0) return {};
  block_.reset(static_cast<std::byte*>(qmem_alloc(wanted)));
  if (!block_) return {};
  std::size_t got = 0;
  block_status_ = read_start(block_.get(), wanted, got);
  if (block_status_.ok()) block_size_ = got;
  return block_status_;
}
