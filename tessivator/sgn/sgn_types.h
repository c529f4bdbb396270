// The records behind this component's opaque types. Internal.
#pragma once

#include <array>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/qlib/qcksum.h"
#include "sgn/sgn_cache.h"
#include "sgn/sgn_ossl.h"

// A table entry with these two values holds data of its maker, not a signature.
inline constexpr std::uint16_t SGN_PRIVATE_REVISION = 0xC102;
inline constexpr std::uint16_t SGN_PRIVATE_TYPE = 0xABFF;

// The full path of a scanned file, shared by everything found in it; null when unknown.
using sgn_source = std::shared_ptr<const std::u16string>;

// A decoded certificate, shared by all structures of a request that carry it: it is decoded and named once.
struct sgn_certificate {
  SgnX509Owner x509;
  std::array<std::uint8_t, QCKSUM_SHA256_BIN_LEN> digest{};  // of its encoding: what tells certificates apart
  std::array<qchar, QCKSUM_SHA256_TEXT> stem{};              // empty until it is first asked for
};
using sgn_certificate_ptr = std::shared_ptr<sgn_certificate>;

// A decoded signature: what naming needs, in the order of the structure. Other kinds of PKCS#7 content have neither
// certificates nor signers.
struct sgn_p7 {
  std::vector<sgn_certificate_ptr> certificates;
  std::vector<SgnIssuerSerialOwner> signers;
  sgn_source source;
};

struct sgn_store_cache {
 public:
  // The certificate with exactly this encoding, or null.
  [[nodiscard]] sgn_certificate_ptr find(std::string_view encoding) const;
  // Remembers a certificate, unless it is very large.
  void add(std::string_view encoding, const sgn_certificate_ptr& certificate);

  // What this request last wrote to a path.
  struct written {
    std::u16string path;
    std::array<std::uint8_t, QCKSUM_SHA256_BIN_LEN> digest;  // of the certificate
    sgn_source source;
  };
  // Null when it wrote nothing there, or too many others since.
  [[nodiscard]] const written* find_written(const qchar* path);
  void set_written(written one);

  // The file of the certificate with this digest could not be written. May throw std::bad_alloc.
  void set_unwritten(const std::array<std::uint8_t, QCKSUM_SHA256_BIN_LEN>& digest, qerr_t code);
  [[nodiscard]] sgn_store_failures failures() const noexcept { return {unwritten_.size(), first_failure_}; }

 private:
  struct hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
  };
  std::unordered_map<std::string, sgn_certificate_ptr, hash, std::equal_to<>> certificates_;
  std::list<written> written_;  // the last that was written or asked for stands first
  std::unordered_map<std::u16string_view, std::list<written>::iterator> by_path_;
  std::set<std::array<std::uint8_t, QCKSUM_SHA256_BIN_LEN>> unwritten_;
  qerr_t first_failure_ = QERR_OK;
};
