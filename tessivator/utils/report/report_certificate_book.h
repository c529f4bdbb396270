// The certificates of a report: which were seen, and which of a file's are its signers.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

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
  };
  using EntryPtr = std::shared_ptr<const Entry>;

  CertificateBook(std::u16string folder, ReportWarnings& warnings) : folder_(std::move(folder)), warnings_(warnings) {}

  // Called for each certificate that is read; one that the cache had forgotten comes again under a new number.
  std::function<void(const CertificateFacts&)> seen;

  // The certificates of a record. Signers come first: those that issued no other one of it and are not made for time
  // stamps alone; `signers` counts them.
  [[nodiscard]] std::vector<EntryPtr> of(const ReportRecord& record, std::size_t& signers);
  // One certificate for each identity among the signers, in their order.
  [[nodiscard]] std::vector<EntryPtr> signersOf(const ReportRecord& record);

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

// "First Signer; Second Signer"
[[nodiscard]] std::string labelsOf(const std::vector<CertificateBook::EntryPtr>& signers);
