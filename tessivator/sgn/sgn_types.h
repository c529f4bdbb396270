// The records behind this component's opaque types. Internal.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/qlib/qcksum.h"
#include "sgn/sgn_ossl.h"

// A decoded certificate. Shared between the structures of one request that carry it, so that it is decoded and named
// once.
struct sgn_certificate {
  X509Ptr x509;
  std::uint64_t id = 0;                          // tells decoded certificates of one cache apart; 0 without a cache
  std::array<qchar, QCKSUM_SHA256_TEXT> stem{};  // empty until it is first asked for
};
using SgnCertificatePtr = std::shared_ptr<sgn_certificate>;

// A decoded signature: all that naming needs, in the order in which the structure lists it. Other kinds of PKCS#7
// content have neither certificates nor signers.
struct sgn_p7 {
  std::vector<SgnCertificatePtr> certificates;
  std::vector<IssuerSerialPtr> signers;
};

struct sgn_store_cache {
 public:
  // The certificate whose encoding is exactly `encoding`, or null.
  [[nodiscard]] SgnCertificatePtr find(std::string_view encoding) const;
  // Remembers a certificate, unless it is unusually large, and gives it its id.
  void add(std::string_view encoding, const SgnCertificatePtr& certificate);
  // Whether the file at `path` was last written by this request, with this certificate.
  [[nodiscard]] bool is_written(const qchar* path, const sgn_certificate& certificate) const;
  void set_written(const qchar* path, const sgn_certificate& certificate);

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
    std::size_t operator()(std::u16string_view text) const noexcept { return std::hash<std::u16string_view>()(text); }
  };
  std::unordered_map<std::string, SgnCertificatePtr, Hash, std::equal_to<>> certificates_;
  std::unordered_map<std::u16string, std::uint64_t, Hash, std::equal_to<>> written_;
  std::uint64_t last_id_ = 0;
};
