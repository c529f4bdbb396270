// Bytes at positions: a whole file, a stream of a compound file, or memory in a test. Keeps the package's decoders from
// reading more than they need of packages that may be a gibibyte long.
#pragma once

#include <array>
#include <memory>

#include "common/qlib/qfile.h"

class msi_source {
 public:
  msi_source() = default;
  msi_source(const msi_source&) = delete;
  msi_source& operator=(const msi_source&) = delete;
  virtual ~msi_source() = default;
  // The number of bytes that may be asked for; reading them can still fail.
  [[nodiscard]] virtual std::uint64_t size() const noexcept = 0;
  // Fills `out` with the bytes at `offset`; false when they cannot all be read.
  [[nodiscard]] virtual bool read(std::uint64_t offset, std::span<std::byte> out) noexcept = 0;
};

// The file at `path`, opened for reading; null when that fails. May throw std::bad_alloc.
[[nodiscard]] std::shared_ptr<msi_source> msi_open_file(const qchar* path);
// The same over an open file, which stays the caller's and open as long as the source lives. The source moves the
// file's position.
[[nodiscard]] std::shared_ptr<msi_source> msi_borrow_file(qfile_t file);

// Reads forward through a source in pieces.
class msi_window {
 public:
  static constexpr std::size_t largest = 16384;

  // `piece`: bytes of one read, at most `largest`.
  explicit msi_window(msi_source& source, std::size_t piece = largest) noexcept : source_(source), piece_(piece) {}
  // The `length` bytes at `offset`, valid until the next call; empty when they cannot be read or are more than a piece.
  // Offsets may go in any order; rising ones are cheap.
  [[nodiscard]] Bytes at(std::uint64_t offset, std::size_t length) noexcept;
  // Whether a read of the source has failed since the window was made.
  [[nodiscard]] bool failed() const noexcept { return failed_; }

 private:
  msi_source& source_;
  std::size_t piece_;
  std::uint64_t start_ = 0;
  std::size_t filled_ = 0;
  bool failed_ = false;
  std::array<std::byte, largest> buffer_;
};
