// The certificates of a report: which were seen, and which of a file's are its signers.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "details/details_records.h"
#include "utils/report/report_certificate.h"
#include "utils/report/report_warnings.h"

// The certificates of one report's folder. Each file is read once, as long as a bounded cache remembers it.
class CertificateBook {
 public:
  // What is kept of a certificate.
  struct Entry {
    CertificateName name{};
    std::uint32_t number = 0;  // in the order of first sight
    std::string identity;
    std::string label;
    bool isTimeStamping = false;
    std::string subjectId;
    std::string issuerId;
    std::string sha256;  // of the certificate; empty when it cannot be read
    Seconds notBefore = 0;
    Seconds notAfter = 0;
    bool isLifetime = false;
    bool isProblem = false;
  };
  using EntryPtr = std::shared_ptr<const Entry>;

  CertificateBook(std::u16string folder, ReportWarnings& warnings) : folder_(std::move(folder)), warnings_(warnings) {}

  // Called for each certificate that is read; one that the cache had forgotten comes again under a new number.
  std::function<void(const CertificateFacts&)> seen;

  // The certificates of a record. Signers come first: those that issued no other one of it and are not made for time
  // stamps alone; `signers` counts them.
  [[nodiscard]] std::vector<EntryPtr> of(const ReportRecord& record, std::size_t& signers);

  // Takes up a certificate of the details.
  void add(const details_certificate& certificate);
  // The certificate of the details whose SHA-256 this is; null when none has come, or so many others since that it was
  // forgotten.
  [[nodiscard]] EntryPtr findDigest(const std::string& sha256) const;

 private:
  EntryPtr find(const CertificateName& name);
  EntryPtr enter(const CertificateFacts& facts);

  struct NameHash {
    std::size_t operator()(const CertificateName& name) const noexcept;
  };
  std::u16string folder_;
  ReportWarnings& warnings_;
  std::unordered_map<CertificateName, EntryPtr, NameHash> known_;
  // By SHA-256. A scan tells a certificate again after this many others, so the last two lots are all that can be
  // named.
  using Lot = std::unordered_map<std::string, EntryPtr>;
  std::array<Lot, 2> told_;
  std::size_t toldBytes_ = 0;  // of the first lot's texts
  std::uint32_t count_ = 0;
};

// "First Signer; Second Signer"
[[nodiscard]] std::string labelsOf(const std::vector<CertificateBook::EntryPtr>& signers);
