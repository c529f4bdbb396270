// What the certificate files beside a report say.
#pragma once

#include <string>
#include <string_view>

#include "utils/report/report_record.h"

// Seconds since 1970, UTC.
using Seconds = std::int64_t;

// One certificate in words. All empty when its file is missing or holds none; `problem` then says so.
struct CertificateFacts {
  CertificateName name{};
  std::string problem;
  std::string identity;  // SignerIdentity's key, and its label
  std::string label;
  std::string holder;  // the shortest that says who: common name, organisation, whole subject
  std::string subject;
  std::string issuer;
  std::string serial;  // hexadecimal
  std::string key;     // "RSA 2048"
  std::string usages;  // extended ones: "Code Signing, 1.3.6.1.4.1.311.61.1.1"
  std::string sha1;    // of the certificate, hexadecimal
  std::string sha256;
  Seconds notBefore = 0;
  Seconds notAfter = 0;
  bool isTimeStamping = false;  // made for time stamps and nothing else, so that it signs no file
  bool isLifetime = false;      // a signature by it ends with it, stamped or not
  // Digests of the encoded names: who issued whom.
  std::string subjectId;
  std::string issuerId;
};

// Reads the certificate file of this name in `folder`. A file that is missing or unreadable is a problem, no error;
// then label and holder say so, and the identity is the name's own.
[[nodiscard]] CertificateFacts readCertificate(const std::u16string& folder, const CertificateName& name);

// The same of a certificate in DER.
[[nodiscard]] CertificateFacts readCertificateDer(std::string_view der, const CertificateName& name);

// The bytes of a certificate's file, which must be a regular file and no link. Returns what is wrong with it, empty for
// nothing.
[[nodiscard]] std::string readCertificateFile(const std::u16string& path, std::string& bytes);
