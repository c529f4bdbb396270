#include "utils/report/report_survey.h"

#include <unordered_set>

namespace {

using Entries = std::vector<CertificateBook::EntryPtr>;

// Adds certificates of the details, each once.
class Collector {
 public:
  Collector(const CertificateBook& book, FileCertificates& found) : book_(book), found_(found) {}

  // First all that do something: what a signature merely carries may be the signer of another one.
  void addActors(const details_signature& signature) {
    for (const details_signer& signer : signature.signers) add(found_.signers, signer.certificate);
    for (const details_stamp& stamp : signature.stamps) add(found_.stamps, stamp.signer.certificate);
    for (const details_signature& nested : signature.nested) addActors(nested);
  }
  void addCarried(const details_signature& signature) {
    for (const std::string& digest : signature.certificates) add(found_.others, digest);
    for (const details_stamp& stamp : signature.stamps) {
      for (const std::string& digest : stamp.certificates) add(found_.others, digest);
    }
    for (const details_signature& nested : signature.nested) addCarried(nested);
  }

 private:
  void add(Entries& list, const std::string& digest) {
    CertificateBook::EntryPtr entry = book_.findDigest(digest);
    if (entry && met_.insert(entry.get()).second) list.push_back(std::move(entry));
  }
  const CertificateBook& book_;
  FileCertificates& found_;
  std::unordered_set<const CertificateBook::Entry*> met_;
};

}  // namespace

ReportSurvey::ReportSurvey(const std::u16string& folder, ReportWarnings& warnings, Seconds now)
    : reader_(folder), warnings_(warnings), certificates_(folder, warnings), details_(folder, warnings), now_(now) {
  details_.seen = [this](const details_certificate& certificate) { certificates_.add(certificate); };
}

void ReportSurvey::read(const std::function<void(const SurveyFile& file)>& visit) {
  if (hasDetails()) catalogues_.read(details_, warnings_);
  reader_.read([&](const ReportRecord& record, std::uint64_t offset) {
    SurveyFile file;
    file.record = &record;
    file.offset = offset;
    if (hasDetails()) {
      file.details = &details_.next(record);
      file.detailsOffset = details_.offset();
    }
    judge(file);
    visit(file);
  });
}

SurveyFile ReportSurvey::readAt(std::uint64_t offset, std::uint64_t detailsOffset, ReportRecord& record) {
  record = reader_.readAt(offset);
  SurveyFile file;
  file.record = &record;
  file.offset = offset;
  file.detailsOffset = detailsOffset;
  if (hasDetails()) file.details = &details_.readAt(detailsOffset);
  judge(file);
  return file;
}

void ReportSurvey::judge(SurveyFile& file) const {
  if (file.details == nullptr) {
    file.verdict = verdictOf(*file.record);
  } else {
    const std::string catalogue = catalogues_.catalogueOf(*file.details);
    file.verdict = verdictOf(*file.record, *file.details, certificates_, catalogue, now_);
  }
}

FileCertificates ReportSurvey::certificatesOf(const SurveyFile& file) {
  FileCertificates found;
  if (file.details != nullptr && !file.details->signatures.empty()) {
    Collector collector(certificates_, found);
    for (const details_signature& signature : file.details->signatures) collector.addActors(signature);
    for (const details_signature& signature : file.details->signatures) collector.addCarried(signature);
    return found;
  }
  std::size_t signers = 0;
  found.signers = certificates_.of(*file.record, signers);
  found.others.assign(found.signers.begin() + static_cast<std::ptrdiff_t>(signers), found.signers.end());
  found.signers.resize(signers);
  return found;
}

std::vector<CertificateBook::EntryPtr> ReportSurvey::signersOf(const SurveyFile& file) {
  Entries signers = certificatesOf(file).signers;
  std::unordered_set<std::string_view> identities;
  std::erase_if(signers,
                [&](const CertificateBook::EntryPtr& entry) { return !identities.insert(entry->identity).second; });
  return signers;
}
