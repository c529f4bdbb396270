// A read-only file in memory, for images that no disk holds.
#pragma once

#include <algorithm>
#include <cstring>

#include "common/qlib/qfile_provider.h"

class MemoryFile final : public qfile_object {
 public:
  explicit MemoryFile(Bytes content) noexcept : content_(content) {}

  qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    done = static_cast<std::uint32_t>(copy(position_, buffer, size));
    position_ += done;
    return {};
  }
  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override {
    const std::uint64_t base = origin == QFILE_FROM_CURRENT ? position_
                               : origin == QFILE_FROM_END   ? content_.size()
                                                            : 0;
    position_ = base + static_cast<std::uint64_t>(offset);
    position = position_;
    return {};
  }
  qsys_status size(std::uint64_t& bytes) noexcept override {
    bytes = content_.size();
    return {};
  }
  qsys_status truncate(std::uint64_t) noexcept override { return {QERR_PERMISSION}; }
  qsys_status info(qfile_info& out) noexcept override {
    out = {content_.size(), 0, 0};
    return {};
  }
  qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
    done = copy(0, destination, length);
    return {};
  }

 private:
  [[nodiscard]] std::size_t copy(std::uint64_t at, void* destination, std::size_t wanted) const noexcept {
    if (at >= content_.size()) return 0;
    const std::size_t count = std::min(wanted, content_.size() - static_cast<std::size_t>(at));
    if (count != 0) std::memcpy(destination, content_.data() + at, count);
    return count;
  }

  Bytes content_;
  std::uint64_t position_ = 0;
};
