// A file in memory that can fail where a test says.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "common/qlib/qfile_provider.h"

struct memory_file final : qfile_object {
  explicit memory_file(std::string bytes) : content(std::move(bytes)) {}

  qsys_status read(void* buffer, std::uint32_t wanted, std::uint32_t& done) noexcept override {
    ++reads;
    if (position >= read_fails_at) return {QERR_IO};
    const std::size_t left = position < content.size() ? content.size() - position : 0;
    const std::size_t count = std::min<std::size_t>({wanted, left, longest_read, read_fails_at - position});
    if (count != 0) std::memcpy(buffer, content.data() + position, count);
    position += count;
    done = static_cast<std::uint32_t>(count);
    return {};
  }
  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& reached) noexcept override {
    if (seeks_left-- == 0) return {QERR_IO};
    const std::uint64_t base = origin == QFILE_FROM_CURRENT ? position : origin == QFILE_FROM_END ? content.size() : 0;
    position = static_cast<std::size_t>(base + static_cast<std::uint64_t>(offset));
    reached = position;
    return {};
  }
  qsys_status size(std::uint64_t& bytes) noexcept override {
    ++sizes;
    if (size_fails) return {QERR_IO};
    bytes = content.size();
    return {};
  }
  qsys_status truncate(std::uint64_t) noexcept override { return {QERR_PERMISSION}; }
  qsys_status info(qfile_info&) noexcept override { return {QERR_NOT_IMPLEMENTED}; }
  qsys_status view(std::byte*, std::size_t, std::size_t&) noexcept override { return {QERR_NOT_IMPLEMENTED}; }

  std::string content;
  std::size_t position = 0;
  std::size_t longest_read = SIZE_MAX;
  std::size_t read_fails_at = SIZE_MAX;
  int seeks_left = 1000;
  bool size_fails = false;
  int reads = 0;
  int sizes = 0;
};
