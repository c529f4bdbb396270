// What a signature says about itself: digest, signers, time stamps, certificates, and the signatures inside it. Nothing
// is verified. Fields are read from the bytes; nothing else is decoded.
//
// Formats: PKCS#7 (RFC 2315) and CMS (RFC 5652) signed data, in DER or BER; Authenticode's attributes; time-stamp
// tokens (RFC 3161). Texts are UTF-8, digests and serial numbers lower-case hexadecimal, times RFC 3339 in UTC. A value
// that is missing or unreadable is empty; it does not affect the others.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qtypes.h"

// Limits: levels of nested signatures with the outermost, and signatures of one file. Others are skipped and counted as
// the problems "nested_too_deep" and "signatures_too_many".
inline constexpr std::uint32_t SGN_FACTS_MOST_DEPTH = 4;
inline constexpr std::uint32_t SGN_FACTS_MOST_SIGNATURES = 64;
// Signers, time stamps and certificates of one file together; no line of a details file holds more.
inline constexpr std::uint32_t SGN_FACTS_MOST_ENTRIES = 65536;
// The longest text (a name, a publisher's text) and all texts of one file, in bytes. Longer ones are left out; beyond
// the sum that is the problem "texts_too_many".
inline constexpr std::size_t SGN_FACTS_MOST_TEXT = 8192;
inline constexpr std::size_t SGN_FACTS_MOST_TEXTS = std::size_t{4} << 20;

// What is damaged or was left out: a short code and a count.
struct sgn_problem {
  std::string_view code;  // of static storage
  std::uint64_t count = 1;
};
// Counts one more of `code`. May throw std::bad_alloc.
void sgn_add_problem(std::vector<sgn_problem>& problems, std::string_view code);

struct sgn_digest {
  std::string algorithm;  // "md5", "sha1", "sha256", "sha384", "sha512", "sha224", or the dotted object identifier
  std::string value;
};

struct sgn_signer_facts {
  std::string certificate;       // SHA-256 of its DER; empty when neither this signature nor the one around it has it
  std::string issuer;            // of that certificate, as the signer gives it: RFC 4514
  std::string serial;            // as sgn_cert_facts::serial
  std::string digest_algorithm;  // as sgn_digest::algorithm
  std::string key_algorithm;     // "rsa", "rsa-pss", "ec", "dsa", "ed25519", or the dotted object identifier
  std::string program_name;      // SpcSpOpusInfo: the publisher's name for the program, and its address
  std::string program_url;
};

// A certificate in the signature's bytes.
struct sgn_certificate_place {
  Bytes der;
  std::string sha256;
};

enum class sgn_stamp_kind : std::uint8_t { countersignature, rfc3161 };

// A time stamp of a signer.
struct sgn_stamp_facts {
  sgn_stamp_kind kind = sgn_stamp_kind::countersignature;
  std::string time;
  sgn_signer_facts signer;                          // of the stamp; program texts are empty
  std::vector<sgn_certificate_place> certificates;  // of a token's own set
};

struct sgn_facts {
  std::string content_type;      // dotted
  std::string digest_algorithm;  // the first that the signature names, as sgn_digest::algorithm
  // The digest of the file as the signature has it (SpcIndirectDataContent); of other content the first signer's
  // messageDigest.
  sgn_digest signed_digest;
  std::vector<sgn_signer_facts> signers;
  std::vector<sgn_certificate_place> certificates;  // in the signature's order
  std::vector<sgn_stamp_facts> stamps;              // of all signers, in their order
  std::vector<sgn_facts> nested;                    // the same
  Bytes list;                         // a catalogue's certificate trust list (sgn_catalogue.h), else empty
  std::vector<sgn_problem> problems;  // "undecodable": it is no signed data, and all else is empty
};

// What the signatures of one file may still take.
struct sgn_facts_budget {
  std::uint32_t signatures = SGN_FACTS_MOST_SIGNATURES;
  std::uint32_t entries = SGN_FACTS_MOST_ENTRIES;
  std::size_t texts = SGN_FACTS_MOST_TEXTS;  // bytes
};

// The facts of the signature at the start of `signature`; what follows it is ignored. Places in `out` point into
// `signature`. At most 16 MiB, and 4,096 certificates and signers a set, are looked at ("signature_too_large",
// "certificates_too_many", "signers_too_many"). Returns QERR_LOW_MEMORY, else QERR_OK: what is damaged is a problem.
[[nodiscard]] qerr_t sgn_facts_read(Bytes signature, sgn_facts_budget& budget, sgn_facts& out) noexcept;
