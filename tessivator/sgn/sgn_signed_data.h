// The parts of signed data (RFC 2315, 9; RFC 5652, 5), cut out where they stand. Internal.
//
// SignerInfo ::= SEQUENCE { version, issuerAndSerialNumber SEQUENCE { issuer, serialNumber }, digestAlgorithm,
//                           authenticatedAttributes [0] OPTIONAL, digestEncryptionAlgorithm, encryptedDigest,
//                           unauthenticatedAttributes [1] OPTIONAL }
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "sgn/sgn_der.h"
#include "sgn/sgn_ossl.h"

struct sgn_signed_parts {
  Bytes digest_algorithm;  // the first one's object identifier; empty without one
  Bytes content_type;      // an object identifier's content
  Bytes content;           // the whole element; empty without one
  Bytes certificates;      // contents of the sets
  Bytes signers;
};
// False when `signature` does not begin with signed data, or signed and enveloped data (which has no `content`).
[[nodiscard]] bool sgn_open_signed_data(Bytes signature, sgn_signed_parts& out) noexcept;

struct sgn_signer_parts {
  Bytes issuer;  // the whole element
  Bytes serial;  // contents from here on
  Bytes digest_algorithm;
  Bytes key_algorithm;
  Bytes signed_attributes;
  Bytes unsigned_attributes;
};
// False when it is no such structure; what could be read is there all the same.
[[nodiscard]] bool sgn_open_signer(Bytes signer, sgn_signer_parts& out) noexcept;

// An attribute of a signer, or of a catalogue's member.
struct sgn_signer_attribute {
  Bytes type;  // an object identifier's content
  sgn_elements values;
};
[[nodiscard]] std::optional<sgn_signer_attribute> sgn_next_attribute(sgn_elements& attributes) noexcept;

// The object identifier of the AlgorithmIdentifier that `in` comes to next; empty, and `in` stays, when it is none.
[[nodiscard]] Bytes sgn_next_algorithm(sgn_elements& in) noexcept;

// SpcIndirectDataContent, given as its whole element: where digest and algorithm stand.
struct sgn_indirect_parts {
  Bytes algorithm;
  sgn_element digest;
};
[[nodiscard]] std::optional<sgn_indirect_parts> sgn_open_indirect_data(Bytes content) noexcept;

// Finds certificates by issuer and serial number. Issuers are compared as they are encoded; only where that finds none,
// as names are (RFC 5280, 7.1). OpenSSL does that with decoded names, which take far more memory than their bytes:
// names of more than 8 KiB, and more than a mebibyte of them, are not decoded. Borrows the certificates. May throw
// std::bad_alloc.
class sgn_identity_index {
 public:
  // Of several certificates with one identity the first is found. What is no certificate is not.
  void add(Bytes certificate, std::size_t number);
  [[nodiscard]] std::optional<std::size_t> find(Bytes issuer, Bytes serial);

 private:
  struct decoded {
    std::shared_ptr<X509_NAME> issuer;
    std::string_view serial;
  };
  struct decoded_order {
    bool operator()(const decoded& a, const decoded& b) const noexcept;
  };
  std::map<std::pair<std::string_view, std::string_view>, std::size_t> encoded_;  // by serial and issuer
  std::map<decoded, std::size_t, decoded_order> decoded_;                         // made when it is first needed
  bool is_decoded_ = false;
};
