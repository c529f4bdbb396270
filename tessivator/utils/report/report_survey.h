// A report together with the certificates and details beside it, file by file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "utils/report/report_catalogues.h"
#include "utils/report/report_certificate_book.h"
#include "utils/report/report_details.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_verdict.h"

// One file of the survey. What it points to is valid during the visit.
struct SurveyFile {
  const ReportRecord* record = nullptr;
  const details_file* details = nullptr;  // null when there are none
  std::uint64_t offset = 0;               // of the record and of its line in the details, in bytes
  std::uint64_t detailsOffset = 0;
  FileVerdict verdict;
};

// A file's certificates by what they do, each once.
struct FileCertificates {
  std::vector<CertificateBook::EntryPtr> signers;
  std::vector<CertificateBook::EntryPtr> others;
  std::vector<CertificateBook::EntryPtr> stamps;  // those that signed time stamps; told by details alone
};

class ReportSurvey {
 public:
  ReportSurvey(const ReportSurvey&) = delete;
  ReportSurvey& operator=(const ReportSurvey&) = delete;
  // `now` is when verdicts are of. Details that do not belong to the report are told on `warnings`.
  ReportSurvey(const std::u16string& folder, ReportWarnings& warnings, Seconds now);

  [[nodiscard]] bool hasDetails() const noexcept { return useDetails_ && details_.isThere(); }
  // Reads the report as if there were none.
  void ignoreDetails() noexcept { useDetails_ = false; }
  // Files in the report; known with details alone.
  [[nodiscard]] std::uint64_t records() const noexcept { return details_.records(); }

  // Called for each file in the report's order. Throws ReportError as ReportReader does.
  void read(const std::function<void(const SurveyFile& file)>& visit);
  // A file again by its offsets: `record` takes its record.
  [[nodiscard]] SurveyFile readAt(std::uint64_t offset, std::uint64_t detailsOffset, ReportRecord& record);

  [[nodiscard]] FileCertificates certificatesOf(const SurveyFile& file);
  // One certificate for each identity among the signers, in their order.
  [[nodiscard]] std::vector<CertificateBook::EntryPtr> signersOf(const SurveyFile& file);

  [[nodiscard]] const ReportReader& reader() const noexcept { return reader_; }
  [[nodiscard]] CertificateBook& certificates() noexcept { return certificates_; }

 private:
  void judge(SurveyFile& file) const;

  ReportReader reader_;
  ReportWarnings& warnings_;
  CertificateBook certificates_;
  ReportDetails details_;
  CatalogueBook catalogues_;
  Seconds now_;
  bool useDetails_ = true;
};
