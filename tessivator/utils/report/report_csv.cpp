#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_survey.h"
#include "utils/report/report_text.h"

namespace {

std::string_view wordOf(ReportVerdict kind) noexcept { return REPORT_VERDICT_WORDS[static_cast<std::size_t>(kind)]; }

std::string_view signedText(ReportVerdict kind) noexcept {
  if (kind == ReportVerdict::NotLookedAt) return wordOf(kind);
  return isSigned(kind) ? "yes" : "no";
}

void appendVerdict(std::string& row, const FileVerdict& verdict) {
  row.append(",").append(wordOf(verdict.kind)).append(",").append(dayOf(verdict)).append(",");
  appendCsv(row, verdict.catalogue);
}

}  // namespace

void reportCsv(const std::u16string& folder, const std::u16string& output, Seconds now) {
  ReportWarnings warnings;
  ReportSurvey survey(folder, warnings, now);
  ReportOutput out(output);
  // The mark tells spreadsheets that this is UTF-8.
  out.write("\xEF\xBB\xBFName,SHA1,SHA256,companyName,productName,productVersion,isInstaller,signed,signers");
  out.write(survey.hasDetails() ? ",verdict,verdictDate,catalogue\r\n" : "\r\n");
  survey.read([&](const SurveyFile& file) {
    std::string& row = out.buffer();
    for (const ReportField field : {ReportField::Name, ReportField::Sha1, ReportField::Sha256, ReportField::Company,
                                    ReportField::Product, ReportField::Version, ReportField::Installer}) {
      appendCsv(row, (*file.record)[field]);
      row += ',';
    }
    row.append(signedText(file.verdict.kind)).append(",");
    appendCsv(row, labelsOf(survey.signersOf(file)));
    if (file.details != nullptr) appendVerdict(row, file.verdict);
    row += "\r\n";
    out.spill();
  });
  out.finish();
  if (survey.reader().omissions().any()) warnings.tell(survey.reader().incompleteText());
}
