#include "sgn/sgn_x509_store.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/qlib/qfile.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_err.h"
#include "sgn/sgn_oneline.h"
#include "sgn/sgn_utl.h"
#include "sgn/sgn_x509.h"

static constexpr std::uint32_t module_id = QLOG_SGN;
#undef QLOG_SOURCE
#define QLOG_SOURCE "sgn_x509.cpp"

namespace {

struct openssl_free {
  void operator()(void* bytes) const noexcept { OPENSSL_free(bytes); }
};

// How one of the two name digests is computed, and what is logged on failure.
struct digest_kind {
  qerr_t (*compute)(const void*, std::size_t, std::uint8_t*) noexcept;
  qerr_t (*to_text)(const std::uint8_t*, qchar*, std::uint32_t) noexcept;
  std::uint32_t binary_length;
  std::size_t text_units;
  const qchar* compute_failed;
  const qchar* text_failed;
};

constexpr digest_kind sha1_kind{qcksum_buf_sha1,
                                qcksum_SHA1_to_qstr,
                                QCKSUM_SHA1_BIN_LEN,
                                QCKSUM_SHA1_TEXT,
                                u"Failed to compute SHA1 %d: %s\n",
                                u"Failed to get memory for SHA1 to qstr\n"};
constexpr digest_kind sha256_kind{qcksum_buf_sha256,
                                  qcksum_SHA2_to_qstr,
                                  QCKSUM_SHA256_BIN_LEN,
                                  QCKSUM_SHA256_TEXT,
                                  u"Failed to compute SHA2 %d: %s\n",
                                  u"Failed to get memory for SHA2 to qstr\n"};

// Helpers log under the name of the function they belong to.
#define STORE_LOG(level, ...) QLOG_AS(level, "sgn_store_x509", __VA_ARGS__)
#define QSHA_LOG(level, ...) QLOG_AS(level, "sgn_get_qsha_issuer_serial", __VA_ARGS__)

qerr_t digest_text(const digest_kind& kind, Bytes bytes, QmemPtr<qchar>& out) noexcept {
  std::array<std::uint8_t, QCKSUM_SHA512_BIN_LEN> binary{};
  qerr_t code = kind.compute(bytes.data(), bytes.size(), binary.data());
  if (code != QERR_OK) {
    QSHA_LOG(code == QERR_CKSUM_BYPASSED ? QLOG_INFO : QLOG_ERROR, kind.compute_failed, code, qerr_get_string(code));
    return code;
  }
  out.reset(static_cast<qchar*>(qmem_calloc(kind.text_units, sizeof(qchar))));
  if (!out) {
    QSHA_LOG(QLOG_ERROR, kind.text_failed);
    return QERR_LOW_MEMORY;
  }
  return kind.to_text(binary.data(), out.get(), kind.binary_length);
}

// Issuer text followed by the serial number.
qerr_t name_bytes(const char* issuer, const ASN1_INTEGER* serial, QmemPtr<std::byte>& out, std::size_t& size) noexcept {
  const int serial_length = ASN1_STRING_length(serial);
  if (serial_length < 0) {
    QSHA_LOG(QLOG_ERROR, u"Invalid length(negative) of serial number");
    return QERR_INVALID;
  }
  const std::size_t issuer_length = std::strlen(issuer);
  size = issuer_length + static_cast<std::size_t>(serial_length);
  out.reset(static_cast<std::byte*>(qmem_alloc(size)));
  if (!out) {
    QSHA_LOG(QLOG_ERROR, u"Failed to get memory for SHA1 calculation\n");
    return QERR_LOW_MEMORY;
  }
  std::memcpy(out.get(), issuer, issuer_length);
  if (serial_length > 0) {
    std::memcpy(out.get() + issuer_length, ASN1_STRING_get0_data(serial), static_cast<std::size_t>(serial_length));
  }
  return QERR_OK;
}

// RFC 7468; empty when OpenSSL cannot encode the certificate. Not the writer of OpenSSL: it takes three times the size
// of the text while its buffer grows, too much for a certificate of 16 MiB. May throw std::bad_alloc.
std::string pem_of(const X509* certificate) {
  constexpr int line = 48;  // bytes, which make 64 characters
  unsigned char* encoding = nullptr;
  const int size = i2d_X509(certificate, &encoding);
  const std::unique_ptr<unsigned char, openssl_free> owner(encoding);
  std::string text;
  if (size <= 0) return text;
  text.reserve((static_cast<std::size_t>(size) / line + 2) * 65);
  text = "-----BEGIN CERTIFICATE-----\n";
  std::array<unsigned char, 65> block{};
  for (int at = 0; at < size; at += line) {
    EVP_EncodeBlock(block.data(), encoding + at, std::min(line, size - at));
    text.append(reinterpret_cast<const char*>(block.data())).push_back('\n');
  }
  return text += "-----END CERTIFICATE-----\n";
}

// Whether a file could be opened but not written; all other failures occur at the open.
bool is_write_failure(qerr_t code) noexcept {
  constexpr qerr_t too_large = 27;
  constexpr qerr_t quota_exceeded = 122;
  return code == QERR_NO_SPACE || code == QERR_IO || code == too_large || code == quota_exceeded;
}

const qchar* text_of(const sgn_source& source) noexcept { return source == nullptr ? u"(unknown)" : source->c_str(); }

// The reason of a failure is in the error queue of OpenSSL.
qerr_t write_failed(const qchar* path) noexcept {
  STORE_LOG(QLOG_ERROR, u"Failed to write file '%s'.", path);
  sgn_dump_err();
  return QERR_OK;
}

}  // namespace

qerr_t sgn_get_qsha_issuer_serial(const char* issuer, const asn1_string_st* serial, qchar** sha1_text,
                                  qchar** sha256_text, std::uint32_t which) noexcept {
  if (issuer == nullptr) return QERR_ARG1;
  if (serial == nullptr) return QERR_ARG2;
  if ((which & SGN_QSHA_SHA1) != 0 && sha1_text == nullptr) return QERR_ARG3;
  if ((which & SGN_QSHA_SHA256) != 0 && sha256_text == nullptr) return QERR_ARG4;
  QmemPtr<std::byte> bytes;
  std::size_t size = 0;
  qerr_t code = name_bytes(issuer, serial, bytes, size);
  QmemPtr<qchar> sha1;
  QmemPtr<qchar> sha256;
  if (code == QERR_OK && (which & SGN_QSHA_SHA1) != 0) code = digest_text(sha1_kind, {bytes.get(), size}, sha1);
  if (code == QERR_OK && (which & SGN_QSHA_SHA256) != 0) code = digest_text(sha256_kind, {bytes.get(), size}, sha256);
  if (code != QERR_OK) return code;
  if (sha1) *sha1_text = sha1.release();
  if (sha256) *sha256_text = sha256.release();
  return QERR_OK;
}

qerr_t sgn_name_certificate(sgn_certificate& certificate) {
  if (certificate.stem[0] != u'\0') return QERR_OK;
  const sgn_error_scope errors;
  const X509* const x509 = certificate.x509.get();
  std::string issuer;
  if (const qerr_t code = sgn_oneline(X509_get_issuer_name(x509), issuer); code != QERR_OK) return code;
  qchar* text = nullptr;
  const qerr_t code =
      sgn_get_qsha_issuer_serial(issuer.c_str(), X509_get0_serialNumber(x509), nullptr, &text, SGN_QSHA_SHA256);
  const QmemPtr<qchar> owner(text);
  if (code == QERR_OK) std::memcpy(certificate.stem.data(), text, sizeof(certificate.stem));
  return code;
}

qerr_t sgn_store_certificate(const sgn_certificate& certificate, const sgn_source& source,
                             const qchar* output_directory, sgn_store_cache* cache) {
  qchar* path = nullptr;
  // An empty directory is none; with a separator behind it, it would be the root.
  const bool no_directory = output_directory != nullptr && output_directory[0] == 0 && !qpath_empty_is_root();
  const qerr_t found =
      no_directory ? QERR_NOT_FOUND : sgn_get_internal_dir_alloc(&path, output_directory, certificate.stem.data());
  if (found != QERR_OK) {
    if (cache != nullptr) cache->set_unwritten(certificate.digest, found);
    return found;
  }
  const QmemPtr<qchar> owner(path);
  STORE_LOG(QLOG_DETAIL, u"Going to save file '%s' to Vantry cert store\n", path);
  const auto* const before = cache == nullptr ? nullptr : cache->find_written(path);
  if (before != nullptr && before->digest == certificate.digest) return QERR_OK;

  const sgn_error_scope errors;
  const std::string pem = pem_of(certificate.x509.get());
  if (pem.empty()) return write_failed(path);
  // Not flushed to the device: after a power cut the scan is repeated anyway.
  const qerr_t code = qfile_write_whole(path, pem.data(), pem.size(), 0);
  if (code != QERR_OK && cache != nullptr) cache->set_unwritten(certificate.digest, code);
  if (is_write_failure(code)) return write_failed(path);
  if (code != QERR_OK) {
    STORE_LOG(QLOG_ERROR, u"Failed to open file '%s' for writing.", path);
    return code;
  }
  if (before != nullptr) {
    STORE_LOG(QLOG_WARNING, u"'%s': the certificate from %s is overwritten by another one from %s\n", path,
              text_of(before->source), text_of(source));
  }
  if (cache != nullptr) cache->set_written({path, certificate.digest, source});
  return QERR_OK;
}

qerr_t sgn_store_x509(x509_st* certificate, const qchar* output_directory, void* /*database*/,
                      std::uint32_t /*flags*/) noexcept {
  if (certificate == nullptr) return QERR_ARG1;
  return sgn_guarded([&] {
    sgn_certificate one;
    if (X509_up_ref(certificate) != 1) return QERR_LOW_MEMORY;
    one.x509.reset(certificate);
    const qerr_t code = sgn_name_certificate(one);
    return code != QERR_OK ? code : sgn_store_certificate(one, nullptr, output_directory, nullptr);
  });
}
