// A file in memory that is larger than any test disk, made of pieces, and whose reads fail when they should. For plain
// bytes memory_file.h will do.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_provider.h"

// Pass &file as the handle; nobody closes it. What lies between and behind the pieces reads as zero up to `size`.
class crafted_file final : public qfile_object {
 public:
  crafted_file() = default;
  explicit crafted_file(std::vector<std::byte> bytes) { put(0, std::move(bytes)); }

  void put(std::uint64_t offset, std::vector<std::byte> bytes) {
    size_bytes = std::max(size_bytes, offset + bytes.size());
    pieces_[offset] = std::move(bytes);
  }

  std::uint64_t size_bytes = 0;
  // For faults: the code of the read after `reads_before_fault` more of them, of `size`, and of `view`.
  qerr_t read_fault = QERR_OK;
  std::uint32_t reads_before_fault = 0;
  qerr_t size_fault = QERR_OK;
  qerr_t seek_fault = QERR_OK;
  qerr_t view_fault = QERR_OK;
  std::uint32_t most_read = ~0U;    // bytes that one read gives at most
  bool shrinks_after_size = false;  // the first `size` is the last to tell the full size; then it is 70 bytes
  // What the reader asked for.
  std::uint64_t bytes_read = 0;
  std::uint32_t reads = 0;

  qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    ++reads;
    done = 0;
    if (read_fault != QERR_OK && reads_before_fault-- == 0) return {read_fault, qsys_condition::none};
    done = copy(position_, buffer, std::min(size, most_read));
    position_ += done;
    bytes_read += done;
    return {};
  }
  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return refused(); }
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override {
    if (seek_fault != QERR_OK) return {seek_fault, qsys_condition::none};
    if (origin != QFILE_FROM_START || offset < 0) return refused();
    position = position_ = static_cast<std::uint64_t>(offset);
    return {};
  }
  qsys_status size(std::uint64_t& bytes) noexcept override {
    if (size_fault != QERR_OK) return {size_fault, qsys_condition::none};
    bytes = size_bytes;
    if (shrinks_after_size) size_bytes = std::min<std::uint64_t>(size_bytes, 70);
    return {};
  }
  qsys_status truncate(std::uint64_t) noexcept override { return refused(); }
  qsys_status info(qfile_info& out) noexcept override {
    out = {size_bytes, 0, 0};
    return {};
  }
  qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
    done = 0;
    if (view_fault != QERR_OK) return {view_fault, qsys_condition::none};
    done = copy(0, destination, static_cast<std::uint32_t>(length));
    return {};
  }

 private:
  static qsys_status refused() noexcept { return {QERR_INVALID, qsys_condition::none}; }

  std::uint32_t copy(std::uint64_t offset, void* buffer, std::uint32_t size) const noexcept {
    if (offset >= size_bytes) return 0;
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
  std::uint64_t position_ = 0;
};
