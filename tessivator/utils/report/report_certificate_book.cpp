#include "utils/report/report_certificate_book.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "common/qlib/qstr.h"
#include "utils/report/report_text.h"

namespace {

constexpr std::size_t max_known = 16384;  // entries, each under a kilobyte
constexpr std::size_t max_told = 65536;   // idem; what a scan remembers to have told
constexpr std::size_t max_told_bytes = std::size_t{16} << 20U;

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
  EntryPtr entry = enter(facts);
  known_.emplace(name, entry);
  return entry;
}

CertificateBook::EntryPtr CertificateBook::enter(const CertificateFacts& facts) {
  if (seen) seen(facts);
  return std::make_shared<const Entry>(Entry{facts.name, count_++, facts.identity, facts.label, facts.isTimeStamping,
                                             facts.subjectId, facts.issuerId, facts.sha256, facts.notBefore,
                                             facts.notAfter, facts.isLifetime, !facts.problem.empty()});
}

void CertificateBook::add(const details_certificate& certificate) {
  if (told_[0].contains(certificate.sha256)) return;
  EntryPtr entry = findDigest(certificate.sha256);
  if (!entry) {
    CertificateName name{};
    (void)hexToBytes(certificate.name, name);
    entry = enter(readCertificateDer(certificate.der, name));
  }
  if (told_[0].size() >= max_told || toldBytes_ >= max_told_bytes) {
    told_[1] = std::move(told_[0]);
    told_[0] = {};
    toldBytes_ = 0;
  }
  toldBytes_ += entry->label.size() + certificate.sha256.size();
  told_[0].emplace(certificate.sha256, std::move(entry));
}

CertificateBook::EntryPtr CertificateBook::findDigest(const std::string& sha256) const {
  for (const Lot& lot : told_) {
    if (const auto found = lot.find(sha256); found != lot.end()) return found->second;
  }
  return nullptr;
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

std::string labelsOf(const std::vector<CertificateBook::EntryPtr>& signers) {
  std::string text;
  for (const CertificateBook::EntryPtr& entry : signers) {
    if (!text.empty()) text += "; ";
    text += entry->label;
  }
  return text;
}
