// What the certificate files beside a report say.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "utils/report/report_record.h"

// Seconds since 1970, UTC.
using Seconds = std::int64_t;

// One certificate in words. All empty when its file is missing or holds none; `problem` then says so.
struct CertificateFacts {
  CertificateName name{};
  std::string problem;
  std::string holder;  // the shortest that says who: common name, organisation, whole subject
  std::string subject;
  std::string issuer;
  std::string serial;  // hexadecimal
  std::string key;     // "RSA 2048"
  std::string digest;  // SHA-256 of the certificate, hexadecimal
  Seconds notBefore = 0;
  Seconds notAfter = 0;
  // Digests of the encoded names: who issued whom.
  std::string subjectId;
  std::string issuerId;
};

// Reads the certificate file of this name in `folder`. A file that is missing or unreadable is a problem, no error.
[[nodiscard]] CertificateFacts readCertificate(const std::u16string& folder, const CertificateName& name);

// The bytes of a certificate's file, which must be a regular file and no link. Returns what is wrong with it, empty for
// nothing.
[[nodiscard]] std::string readCertificateFile(const std::u16string& path, std::string& bytes);

// Lines for standard error. Of many the first ones are told one by one, the others by their number.
class ReportWarnings {
 public:
  ReportWarnings() = default;
  ReportWarnings(const ReportWarnings&) = delete;
  ReportWarnings& operator=(const ReportWarnings&) = delete;
  ~ReportWarnings();
  void tell(std::u16string_view text);

 private:
  std::size_t count_ = 0;
};

// The certificates of one report's folder. Each file is read once, as long as a bounded cache remembers it.
class CertificateBook {
 public:
  // What is kept of a certificate.
  struct Entry {
    CertificateName name{};
    std::uint32_t number = 0;  // in the order of first sight
    std::string holder;
    std::string subjectId;
    std::string issuerId;
  };
  using EntryPtr = std::shared_ptr<const Entry>;

  CertificateBook(std::u16string folder, ReportWarnings& warnings) : folder_(std::move(folder)), warnings_(warnings) {}

  // Called for each certificate that is read; one that the cache had forgotten comes again under a new number.
  std::function<void(const CertificateFacts&)> seen;

  // The certificates of a record. Signers come first: those that issued no other one of it; `signers` counts them.
  [[nodiscard]] std::vector<EntryPtr> of(const ReportRecord& record, std::size_t& signers);
  // "First Signer; Second Signer"
  [[nodiscard]] std::string signersOf(const ReportRecord& record);
  // Who a certificate is of.
  [[nodiscard]] std::string holderOf(const CertificateName& name) { return find(name)->holder; }

 private:
  EntryPtr find(const CertificateName& name);

  struct NameHash {
    std::size_t operator()(const CertificateName& name) const noexcept;
  };
  std::u16string folder_;
  ReportWarnings& warnings_;
  std::unordered_map<CertificateName, EntryPtr, NameHash> known_;
  std::uint32_t count_ = 0;
};
