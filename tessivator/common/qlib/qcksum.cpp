#include "common/qlib/qcksum.h"

#include <openssl/err.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "common/qlib/qcksum_digest.h"
#include "common/qlib/qerr.h"

namespace {

// One digest of a pass over a file.
struct request {
  std::uint8_t kind;
  qcksum_algorithm algorithm;
  std::uint8_t length;
  qcksum* record;
  EVP_MD_CTX* context = nullptr;
};

using request_list = std::array<request, 3>;

// The requested range: `length` bytes, 0 for everything to the end. `is_whole`: the whole file with the size at the
// start of the pass.
struct range {
  std::uint64_t offset;
  std::uint64_t length;
  bool is_whole;
  const qcksum_tap* tap = nullptr;
};

// The range to read: to the end, or `remaining` bytes.
struct extent {
  bool to_end = false;
  std::uint64_t remaining = 0;
};

// A read to the end needs no size, but only a pass with SHA-1 skips it.
qerr_t find_extent(std::uint32_t flags, qfile_t file, const range& wanted, extent& result) noexcept {
  if (!wanted.is_whole && wanted.length == 0 && wanted.offset == 0 && (flags & QCKSUM_SHA1) != 0) {
    result.to_end = true;
    return QERR_OK;
  }
  std::uint64_t size = 0;
  const qerr_t code = qfile_size(file, &size);
  if (code != QERR_OK) return code;
  result.remaining = wanted.length != 0 ? wanted.length : wanted.offset < size ? size - wanted.offset : 0;
  return QERR_OK;
}

bool feed(const request_list& requests, Bytes bytes) noexcept {
  for (const request& one : requests) {
    if (one.context != nullptr && EVP_DigestUpdate(one.context, bytes.data(), bytes.size()) != 1) return false;
  }
  return true;
}

// The next bytes of the file, at most `wanted`: in place if the open file holds them, else in the buffer of the loan.
// Empty at the end of the file, and when a read fails, which also ends the pass.
qerr_t next_bytes(qfile_t file, std::uint32_t wanted, qcksum_loan& loan, Bytes& out) noexcept {
  out = qfile_held(file);
  if (!out.empty()) {
    out = out.first(std::min<std::size_t>(out.size(), wanted));
    return qfile_seek(file, static_cast<std::int64_t>(out.size()), QFILE_FROM_CURRENT, nullptr);
  }
  std::byte* const buffer = loan.buffer();
  if (buffer == nullptr) return QERR_LOW_MEMORY;
  std::uint32_t done = 0;
  if (qfile_read(file, buffer, wanted, &done) == QERR_OK) out = Bytes(buffer, done);
  return QERR_OK;
}

qerr_t read_and_feed(qfile_t file, const request_list& requests, extent what, const qcksum_tap* tap,
                     qcksum_loan& loan) noexcept {
  while (what.to_end || what.remaining != 0) {
    const auto wanted = what.to_end
                            ? QCKSUM_BUFFER_SIZE
                            : static_cast<std::uint32_t>(std::min<std::uint64_t>(what.remaining, QCKSUM_BUFFER_SIZE));
    Bytes bytes;
    if (const qerr_t code = next_bytes(file, wanted, loan, bytes); code != QERR_OK) return code;
    if (bytes.empty()) return QERR_OK;
    if (!feed(requests, bytes)) return QERR_LOW_MEMORY;
    if (tap != nullptr) tap->take(tap->context, bytes);
    if (!what.to_end) what.remaining -= std::min<std::uint64_t>(bytes.size(), what.remaining);
  }
  return QERR_OK;
}

qerr_t single_pass(std::uint32_t flags, qfile_t file, request_list& requests, std::uint64_t position,
                   const range& wanted) noexcept {
  qcksum_loan loan;
  for (request& one : requests) {
    if ((flags & one.kind) == 0) continue;
    one.context = loan.begin(one.algorithm);
    if (one.context == nullptr) return QERR_LOW_MEMORY;
  }
  extent what;
  qerr_t code = find_extent(flags, file, wanted, what);
  if (code != QERR_OK) return code;
  if (position != wanted.offset) {
    if (wanted.offset > INT64_MAX) return QERR_INVALID;
    code = qfile_seek(file, static_cast<std::int64_t>(wanted.offset), QFILE_FROM_START, nullptr);
    if (code != QERR_OK) return code;
  }
  code = read_and_feed(file, requests, what, wanted.tap, loan);
  for (const request& one : requests) {
    if (one.context == nullptr) continue;
    if (EVP_DigestFinal_ex(one.context, one.record->value, nullptr) != 1) code = QERR_LOW_MEMORY;
  }
  if (code != QERR_OK) ERR_clear_error();
  return code;
}

qerr_t compute(std::uint32_t flags, qfile_t file, qcksum* sha1, qcksum* md5, qcksum* sha256,
               const range& wanted) noexcept {
  request_list requests{{{QCKSUM_SHA1, qcksum_algorithm::sha1, QCKSUM_SHA1_BIN_LEN, sha1},
                         {QCKSUM_MD5, qcksum_algorithm::md5, QCKSUM_MD5_BIN_LEN, md5},
                         {QCKSUM_SHA256, qcksum_algorithm::sha256, QCKSUM_SHA256_BIN_LEN, sha256}}};
  const auto requested = [flags](const request& one) { return (flags & one.kind) != 0; };
  for (const request& one : requests) {
    if (requested(one) && one.record == nullptr) return QERR_INVALID;
  }
  if (std::none_of(requests.begin(), requests.end(), requested)) return QERR_ARG1;
  for (const request& one : requests) {
    if (requested(one)) one.record->type = one.kind;
  }
  if (file == QFILE_INVALID) return QERR_ARG1;

  std::uint64_t position = 0;
  const qerr_t told = qfile_seek(file, 0, QFILE_FROM_CURRENT, &position);
  if (told != QERR_OK) return told;
  const qerr_t computed = single_pass(flags, file, requests, position, wanted);
  for (const request& one : requests) {
    if (requested(one)) one.record->length = one.length;
  }
  const qerr_t restored = qfile_seek(file, static_cast<std::int64_t>(position), QFILE_FROM_START, nullptr);
  return computed != QERR_OK ? computed : restored;
}

qerr_t digest_buffer(qcksum_algorithm algorithm, const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  if (buffer == nullptr && size != 0) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG3;
  qcksum_loan loan;
  EVP_MD_CTX* context = loan.begin(algorithm);
  if (context == nullptr) return QERR_LOW_MEMORY;
  if (EVP_DigestUpdate(context, buffer, size) == 1 && EVP_DigestFinal_ex(context, out, nullptr) == 1) return QERR_OK;
  ERR_clear_error();
  return QERR_LOW_MEMORY;
}

}  // namespace

qerr_t qcksum_compute(std::uint32_t flags, qfile_t file, qcksum* sha1, qcksum* md5, qcksum* sha256,
                      std::uint64_t offset, std::uint64_t length) noexcept {
  return compute(flags, file, sha1, md5, sha256, {offset, length, false});
}

qerr_t qcksum_compute_whole(std::uint32_t flags, qfile_t file, qcksum* sha1, qcksum* md5, qcksum* sha256,
                            const qcksum_tap* tap) noexcept {
  return compute(flags, file, sha1, md5, sha256, {0, 0, true, tap});
}

qerr_t qcksum_compute_file(std::uint32_t flags, const qchar* path, qcksum* sha1, qcksum* md5, qcksum* sha256,
                           std::uint64_t offset, std::uint64_t length) noexcept {
  QfileOwner file;
  const qerr_t code = qfile_open(file.out(), path, QFILE_READ);
  if (code != QERR_OK) return code;
  return qcksum_compute(flags, file.get(), sha1, md5, sha256, offset, length);
}

qerr_t qcksum_buf_md5(const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  return digest_buffer(qcksum_algorithm::md5, buffer, size, out);
}

qerr_t qcksum_buf_sha1(const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  return digest_buffer(qcksum_algorithm::sha1, buffer, size, out);
}

qerr_t qcksum_buf_sha256(const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  return digest_buffer(qcksum_algorithm::sha256, buffer, size, out);
}

qerr_t qcksum_buf_sha384(const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  return digest_buffer(qcksum_algorithm::sha384, buffer, size, out);
}

qerr_t qcksum_buf_sha512(const void* buffer, std::size_t size, std::uint8_t* out) noexcept {
  return digest_buffer(qcksum_algorithm::sha512, buffer, size, out);
}

qerr_t qcksum_buf_sum16(const void* buffer, std::size_t size, std::uint16_t* result) noexcept {
  if (buffer == nullptr && size != 0) return QERR_ARG1;
  if (result == nullptr) return QERR_ARG3;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  std::uint32_t sum = 0;
  for (std::size_t i = 0; size - i >= 2; i += 2) {
    sum += static_cast<std::uint32_t>(bytes[i]) | (static_cast<std::uint32_t>(bytes[i + 1]) << 8);
    if (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  }
  *result = static_cast<std::uint16_t>((sum & 0xFFFF) + (sum >> 16));
  return QERR_OK;
}

struct qcksum_ctx {
  std::uint8_t kind = 0;
  qcksum_service_ref service;
  EvpMdCtxPtr digest;  // null for a kind without incremental form, and once the digest is final
};

qcksum_ctx* qcksum_ctx_create(std::uint8_t kind) noexcept {
  constexpr std::array<std::uint8_t, 6> kinds{QCKSUM_SUM16,  QCKSUM_MD5,    QCKSUM_SHA1,
                                              QCKSUM_SHA256, QCKSUM_SHA512, QCKSUM_SHA384};
  if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) return nullptr;
  std::unique_ptr<qcksum_ctx> context(new (std::nothrow) qcksum_ctx);
  if (!context) return nullptr;
  context->kind = kind;
  if (kind == QCKSUM_MD5 || kind == QCKSUM_SHA1) {
    const auto algorithm = kind == QCKSUM_MD5 ? qcksum_algorithm::md5 : qcksum_algorithm::sha1;
    if (!context->service.begin(algorithm, context->digest)) return nullptr;
  }
  return context.release();
}

std::int32_t qcksum_ctx_update(qcksum_ctx* context, const void* buffer, std::size_t size) noexcept {
  if (context == nullptr || !context->digest || (buffer == nullptr && size != 0)) return -1;
  if (EVP_DigestUpdate(context->digest.get(), buffer, size) == 1) return 0;
  ERR_clear_error();
  return -1;
}

std::int32_t qcksum_ctx_final(qcksum_ctx* context, qcksum* record) noexcept {
  if (context == nullptr || !context->digest || record == nullptr) return -1;
  unsigned length = 0;
  const EvpMdCtxPtr ended = std::move(context->digest);
  if (EVP_DigestFinal_ex(ended.get(), record->value, &length) != 1) {
    ERR_clear_error();
    return -1;
  }
  record->type = context->kind;
  record->length = static_cast<std::uint8_t>(length);
  return 0;
}

void qcksum_ctx_free(qcksum_ctx* context) noexcept { const std::unique_ptr<qcksum_ctx> released(context); }
