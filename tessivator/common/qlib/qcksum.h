// Checksums: a tagged record, digests of files and buffers (OpenSSL's message digests), and their hexadecimal text.
#pragma once

#include <memory>

#include "common/qlib/qfile.h"
#include "common/qlib/qtypes.h"

// Kinds; 1, 2 and 4 also combine as request flags.
inline constexpr std::uint8_t QCKSUM_SUM16 = 0;
inline constexpr std::uint8_t QCKSUM_MD5 = 1;
inline constexpr std::uint8_t QCKSUM_SHA1 = 2;
inline constexpr std::uint8_t QCKSUM_SHA256 = 4;
inline constexpr std::uint8_t QCKSUM_SHA512 = 8;
inline constexpr std::uint8_t QCKSUM_SHA384 = 16;

inline constexpr std::uint32_t QCKSUM_MD5_BIN_LEN = 16;
inline constexpr std::uint32_t QCKSUM_SHA1_BIN_LEN = 20;
inline constexpr std::uint32_t QCKSUM_SHA256_BIN_LEN = 32;
inline constexpr std::uint32_t QCKSUM_SHA384_BIN_LEN = 48;
inline constexpr std::uint32_t QCKSUM_SHA512_BIN_LEN = 64;
// Hexadecimal text sizes in units, terminator included.
inline constexpr std::size_t QCKSUM_MD5_TEXT = 33;
inline constexpr std::size_t QCKSUM_SHA1_TEXT = 41;
inline constexpr std::size_t QCKSUM_SHA256_TEXT = 65;

struct qcksum {
  std::uint8_t type;
  std::uint8_t length;  // valid bytes of value
  std::uint8_t value[64];
};
static_assert(sizeof(qcksum) == 66);

// Digests of an open file in one pass. `flags` is a mask of MD5, SHA-1 and SHA-256, each requested kind with its
// record. `length` 0 reads from `offset` to the end. The handle's position is restored. What the handle keeps of
// the file's start (qfile.h) is digested as it was first read, the rest as it is now. Returns
// QERR_INVALID for a missing record, QERR_ARG1 when no kind is requested or the file is missing, QERR_LOW_MEMORY, or a
// file error; a read that fails ends the pass with QERR_OK and digests of what was read.
[[nodiscard]] qerr_t qcksum_compute(std::uint32_t flags, qfile_t file, qcksum* sha1, qcksum* md5, qcksum* sha256,
                                    std::uint64_t offset, std::uint64_t length) noexcept;
// Is shown the bytes of a pass, part by part and each once, behind what digests them.
struct qcksum_tap {
  void (*take)(void* context, Bytes bytes) noexcept;
  void* context;
};
// The same for a whole file as large as it is when the pass begins: one that grows meanwhile comes to an end, one that
// has shrunk ends early, and an empty one is not read. `tap` may be null.
[[nodiscard]] qerr_t qcksum_compute_whole(std::uint32_t flags, qfile_t file, qcksum* sha1, qcksum* md5, qcksum* sha256,
                                          const qcksum_tap* tap = nullptr) noexcept;
// qcksum_compute for a path; returns the code of a failed open.
[[nodiscard]] qerr_t qcksum_compute_file(std::uint32_t flags, const qchar* path, qcksum* sha1, qcksum* md5,
                                         qcksum* sha256, std::uint64_t offset, std::uint64_t length) noexcept;

// Digest of a buffer: the raw bytes into `out`, which has 64 bytes. QERR_LOW_MEMORY when the digest cannot be created,
// else QERR_OK.
[[nodiscard]] qerr_t qcksum_buf_md5(const void* buffer, std::size_t size, std::uint8_t* out) noexcept;
[[nodiscard]] qerr_t qcksum_buf_sha1(const void* buffer, std::size_t size, std::uint8_t* out) noexcept;
[[nodiscard]] qerr_t qcksum_buf_sha256(const void* buffer, std::size_t size, std::uint8_t* out) noexcept;
[[nodiscard]] qerr_t qcksum_buf_sha384(const void* buffer, std::size_t size, std::uint8_t* out) noexcept;
[[nodiscard]] qerr_t qcksum_buf_sha512(const void* buffer, std::size_t size, std::uint8_t* out) noexcept;

// Digests of bytes that come in parts, of several kinds at once: QCKSUM_MD5, QCKSUM_SHA1, QCKSUM_SHA256, QCKSUM_SHA384
// and QCKSUM_SHA512, combined as flags. What it takes from the process it gives back when it ends, not before: one that
// begins anew takes nothing again.
class qcksum_parts {
 public:
  qcksum_parts() noexcept;
  qcksum_parts(const qcksum_parts&) = delete;
  qcksum_parts& operator=(const qcksum_parts&) = delete;
  ~qcksum_parts();
  // Begins anew. QERR_LOW_MEMORY.
  [[nodiscard]] qerr_t begin(std::uint32_t kinds) noexcept;
  // A failure shows in finish.
  void update(Bytes bytes) noexcept;
  // Ends the digest of one kind. QERR_NOT_FOUND for a kind that was not begun or has ended, QERR_LOW_MEMORY,
  // QERR_ARG2.
  [[nodiscard]] qerr_t finish(std::uint8_t kind, qcksum* record) noexcept;

 private:
  struct state;
  std::unique_ptr<state> state_;
};

// Ones'-complement sum of little-endian 16-bit words, carries folded, not complemented; an odd last byte is ignored.
[[nodiscard]] qerr_t qcksum_buf_sum16(const void* buffer, std::size_t size, std::uint16_t* result) noexcept;

// 1 when both have the same known type and equal values in the length of that type, else 0.
[[nodiscard]] std::uint32_t qcksum_compare(const qcksum* a, const qcksum* b) noexcept;

// Lower-case hexadecimal of a record. Zeroes the whole buffer first and never overruns it. Both functions do the same.
[[nodiscard]] qerr_t qcksum_to_qstr(qchar* text, std::size_t text_size_bytes, const qcksum* record) noexcept;
[[nodiscard]] qerr_t qcksum2_to_qstr(qchar* text, std::size_t text_size_bytes, const qcksum* record) noexcept;

// Lower-case hexadecimal of a raw digest without a terminator: the caller provides a zeroed buffer of the text size.
// QERR_INVALID (logged) when binary_length is not the length of the kind.
[[nodiscard]] qerr_t qcksum_SHA1_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept;
[[nodiscard]] qerr_t qcksum_MD5_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept;
[[nodiscard]] qerr_t qcksum_SHA2_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept;

// Hexadecimal text to value bytes (at most 64). Characters are not validated; type and length are not set. Returns
// QERR_OK.
[[nodiscard]] qerr_t qstr_to_qcksum(const qchar* text, qcksum* record) noexcept;

// Incremental MD5 and SHA-1. Create returns null when out of memory or for an unknown kind; update and final return -1
// for other kinds.
struct qcksum_ctx;
[[nodiscard]] qcksum_ctx* qcksum_ctx_create(std::uint8_t kind) noexcept;
[[nodiscard]] std::int32_t qcksum_ctx_update(qcksum_ctx* context, const void* buffer, std::size_t size) noexcept;
[[nodiscard]] std::int32_t qcksum_ctx_final(qcksum_ctx* context, qcksum* record) noexcept;
void qcksum_ctx_free(qcksum_ctx* context) noexcept;
