// The Authenticode digest of an image: of all its bytes but its checksum, the directory entry of its attribute
// certificate table, and that table. A file without a table is digested as it would be signed, with zeros up to a
// multiple of 8 bytes.
#pragma once

#include <array>

#include "blib/blib_bin.h"
#include "common/qlib/qcksum.h"

// Takes a file's bytes in order while somebody else reads them. Serves one image after the other.
class blib_authenticode {
 public:
  blib_authenticode() noexcept = default;
  blib_authenticode(const blib_authenticode&) = delete;
  blib_authenticode& operator=(const blib_authenticode&) = delete;
  // Begins the digests of `kinds` (QCKSUM_MD5, QCKSUM_SHA1, QCKSUM_SHA256, QCKSUM_SHA384, QCKSUM_SHA512, combined) of
  // an open image. QERR_ARG1, QERR_NOT_FOUND when its headers do not reach to the directory entry, QERR_LOW_MEMORY.
  [[nodiscard]] qerr_t begin(const blib_bin* image, std::uint32_t kinds) noexcept;

  // What takes the bytes: all of the file's, from its first on. Valid as long as this is.
  [[nodiscard]] const qcksum_tap* tap() const noexcept { return &tap_; }

  // Ends one digest. QERR_NOT_FOUND for one that was not begun or has ended; QERR_INVALID when other bytes came than
  // the image has, in number; QERR_LOW_MEMORY, QERR_ARG2.
  [[nodiscard]] qerr_t finish(std::uint8_t kind, qcksum* digest) noexcept;

 private:
  struct range {
    std::uint64_t begin;
    std::uint64_t end;
  };
  void take(Bytes bytes) noexcept;

  qcksum_parts digests_;
  std::array<range, 3> skipped_{};  // by their beginnings
  std::uint64_t size_ = 0;          // of the file
  std::uint64_t position_ = 0;
  bool is_padded_ = false;  // already, or not to be
  qcksum_tap tap_{[](void* self, Bytes bytes) noexcept { static_cast<blib_authenticode*>(self)->take(bytes); }, this};
};
