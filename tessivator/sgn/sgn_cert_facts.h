// What a certificate (X.509, RFC 5280) says about itself. Each value is read on its own: one that is unreadable does
// not affect the others.
#pragma once

#include <string>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qtypes.h"
#include "sgn/sgn_facts.h"

struct sgn_cert_facts {
  std::string sha256;  // of the DER
  std::string sha1;
  std::string tbs_sha1;  // of the signed part
  std::string tbs_sha256;
  std::string tbs_sha384;
  std::string subject;  // RFC 4514: the last attribute first. Other known types have OpenSSL's names
  std::string issuer;
  std::string serial;  // the number's magnitude in whole octets, after "-" when it is negative
  std::string not_before;
  std::string not_after;
  std::string key_algorithm;                 // as sgn_signer_facts::key_algorithm
  std::uint32_t key_bits = 0;                // of modulus, prime or field; 0 where unknown
  std::string key_curve;                     // "P-256", "P-384", "P-521", the dotted object identifier, or "explicit"
  std::string signature_algorithm;           // "sha256WithRSAEncryption" and the like, or dotted
  std::vector<std::string> extended_usages;  // dotted, in order
  bool ca = false;                           // by its basic constraints
  bool self_issued = false;                  // subject and issuer are the same bytes
  std::string common_name;                   // of the subject's attributes the last of each type, as plain text
  std::string organization;
  std::string country;
  std::string registration;  // a company's number: serialNumber, else organizationIdentifier
  std::string stem;          // the name of its file without ".cer" (sgn_x509.h), whether there is one or not
  // "certificate_undecodable": its fields cannot be separated, or it cannot be written as a file;
  // "validity_unreadable", "subject_unreadable" and so on.
  std::vector<sgn_problem> problems;
};

// Fills `out`. Returns QERR_LOW_MEMORY, else QERR_OK.
[[nodiscard]] qerr_t sgn_cert_facts_read(Bytes der, sgn_cert_facts& out) noexcept;
