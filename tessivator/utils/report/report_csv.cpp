#include "utils/report/report_certificate_book.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"

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
    row += record.certificates.empty() ? "no," : "yes,";
    appendCsv(row, certificates.signersOf(record));
    row += "\r\n";
    out.spill();
  });
  out.finish();
  if (reader.omissions().any()) warnings.tell(reader.incompleteText());
}
