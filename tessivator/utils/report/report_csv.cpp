#include "utils/report/report_certificate_book.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"
#include "utils/report/report_verdict.h"

namespace {

std::string_view signedText(const ReportRecord& record) noexcept {
  switch (verdictOf(record)) {
    case ReportVerdict::Signed:
      return "yes";
    case ReportVerdict::Unsigned:
      return "no";
    default:
      return REPORT_VERDICT_WORDS[static_cast<std::size_t>(ReportVerdict::NotLookedAt)];
  }
}

}  // namespace

void reportCsv(const std::u16string& folder, const std::u16string& output) {
  ReportReader reader(folder);
  ReportWarnings warnings;
  CertificateBook certificates(folder, warnings);
  ReportOutput out(output);
  // The mark tells spreadsheets that this is UTF-8.
  out.write("\xEF\xBB\xBFName,SHA1,SHA256,companyName,productName,productVersion,isInstaller,signed,signers\r\n");
  reader.read([&](const ReportRecord& record, std::uint64_t) {
    std::string& row = out.buffer();
    for (const ReportField field : {ReportField::Name, ReportField::Sha1, ReportField::Sha256, ReportField::Company,
                                    ReportField::Product, ReportField::Version, ReportField::Installer}) {
      appendCsv(row, record[field]);
      row += ',';
    }
    row.append(signedText(record)).append(",");
    appendCsv(row, labelsOf(certificates.signersOf(record)));
    row += "\r\n";
    out.spill();
  });
  out.finish();
  if (reader.omissions().any()) warnings.tell(reader.incompleteText());
}
