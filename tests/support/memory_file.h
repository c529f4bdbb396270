// The one file in memory: larger than any test disk when that is asked for, made of pieces, and failing when it should.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_provider.h"

// Pass &file as the handle; nobody closes it. What lies between and behind the pieces reads as zero up to `size`.
class memory_file final : public qfile_object {
 public:
  explicit memory_file(Bytes bytes) { put(0, {bytes.begin(), bytes.end()}); }
  explicit memory_file(std::string_view text) : memory_file(std::as_bytes(std::span(text))) {}

  void put(std::uint64_t offset, std::vector<std::byte> bytes) {
    size_bytes = std::max(size_bytes, offset + bytes.size());
    pieces_[offset] = std::move(bytes);
  }

  std::uint64_t size_bytes = 0;
  std::uint64_t position = 0;
  // For faults: the code of the read or seek after so many more of them, of `size`, and of `view`.
  qerr_t read_fault = QERR_OK, seek_fault = QERR_OK, size_fault = QERR_OK, view_fault = QERR_OK;
  std::uint32_t reads_before_fault = 0, seeks_before_fault = 0;
  std::uint64_t size_told = ~0ULL;  // what `size` answers of a file that grows or shrinks behind it
  std::uint32_t most_read = ~0U;    // bytes that one read gives at most
  bool shrinks_after_size = false;  // the first `size` is the last to tell the full size; then it is 70 bytes
  // What the reader asked for.
  std::uint64_t bytes_read = 0;
  std::uint32_t reads = 0, sizes = 0;

  qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    ++reads;
    done = 0;
    if (read_fault != QERR_OK && reads_before_fault-- == 0) return {read_fault};
    done = copy(position, buffer, std::min(size, most_read));
    position += done;
    bytes_read += done;
    return {};
  }
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& reached) noexcept override {
    if (seek_fault != QERR_OK && seeks_before_fault-- == 0) return {seek_fault};
    const std::uint64_t base = origin == QFILE_FROM_CURRENT ? position : origin == QFILE_FROM_END ? size_bytes : 0;
    if (!qfile_seek_target(base, offset, position)) return {QERR_INVALID};
    reached = position;
    return {};
  }
  qsys_status size(std::uint64_t& bytes) noexcept override {
    ++sizes;
    bytes = size_told != ~0ULL ? size_told : size_bytes;
    if (shrinks_after_size) size_bytes = std::min<std::uint64_t>(size_bytes, 70);
    return {size_fault};
  }
  qsys_status info(qfile_info& out) noexcept override {
    out = {size_bytes, 0, 0};
    return {};
  }
  qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
    done = view_fault == QERR_OK ? copy(0, destination, static_cast<std::uint32_t>(length)) : 0;
    return {view_fault};
  }
  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status truncate(std::uint64_t) noexcept override { return {QERR_PERMISSION}; }

 private:
  std::uint32_t copy(std::uint64_t offset, void* buffer, std::uint32_t size) const noexcept {
    if (offset >= size_bytes || size == 0) return 0;
    size = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, size_bytes - offset));
    std::memset(buffer, 0, size);
    for (const auto& [start, bytes] : pieces_) {
      const std::uint64_t from = std::max(start, offset);
      const std::uint64_t to = std::min(start + bytes.size(), offset + size);
      if (from < to)
        std::memcpy(static_cast<std::byte*>(buffer) + (from - offset), bytes.data() + (from - start), to - from);
    }
    return size;
  }

  std::map<std::uint64_t, std::vector<std::byte>> pieces_;
};
