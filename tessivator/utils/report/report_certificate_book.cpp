#include "utils/report/report_certificate_book.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "common/qlib/qstr.h"
#include "utils/report/report_text.h"

namespace {

constexpr std::size_t max_known = 16384;  // entries, each under a kilobyte

}  // namespace

std::size_t CertificateBook::NameHash::operator()(const CertificateName& name) const noexcept {
  std::size_t hash = 0;  // a name is a digest already
  std::memcpy(&hash, name.data(), sizeof(hash));
  return hash;
}

CertificateBook::EntryPtr CertificateBook::find(const CertificateName& name) {
  if (const auto found = known_.find(name); found != known_.end()) return found->second;
  if (known_.size() >= max_known) known_.clear();
  CertificateFacts facts = readCertificate(folder_, name);
  if (!facts.problem.empty()) {
    const std::string hex = bytesToHex(name);
    warnings_.tell(folder_ + u": certificate " + qstr_to_wide(hex) + u": " + qstr_to_wide(facts.problem));
  }
  if (seen) seen(facts);
  EntryPtr entry = std::make_shared<const Entry>(
      Entry{name, count_++, facts.identity, facts.label, facts.isTimeStamping, facts.subjectId, facts.issuerId});
  known_.emplace(name, entry);
  return entry;
}

std::vector<CertificateBook::EntryPtr> CertificateBook::of(const ReportRecord& record, std::size_t& signers) {
  std::vector<EntryPtr> entries;
  entries.reserve(record.certificates.size());
  for (const CertificateName& name : record.certificates) entries.push_back(find(name));
  // Who issued another one; a certificate that issued itself alone is a signer nevertheless.
  std::unordered_set<std::string_view> issuers;
  for (const EntryPtr& entry : entries) {
    if (!entry->issuerId.empty() && entry->issuerId != entry->subjectId) issuers.insert(entry->issuerId);
  }
  const auto middle = std::stable_partition(entries.begin(), entries.end(), [&](const EntryPtr& entry) {
    return !entry->isTimeStamping && (entry->subjectId.empty() || !issuers.contains(entry->subjectId));
  });
  signers = static_cast<std::size_t>(middle - entries.begin());
  return entries;
}

std::vector<CertificateBook::EntryPtr> CertificateBook::signersOf(const ReportRecord& record) {
  std::size_t count = 0;
  std::vector<EntryPtr> signers = of(record, count);
  signers.resize(count);
  std::unordered_set<std::string_view> identities;
  std::erase_if(signers, [&](const EntryPtr& entry) { return !identities.insert(entry->identity).second; });
  return signers;
}

std::string labelsOf(const std::vector<CertificateBook::EntryPtr>& signers) {
  std::string text;
  for (const CertificateBook::EntryPtr& entry : signers) {
    if (!text.empty()) text += "; ";
    text += entry->label;
  }
  return text;
}
