// A CycloneDX 1.5 bill of materials. Elements stand in the order that its schema asks for.
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_survey.h"
#include "utils/report/report_text.h"

namespace {

void appendElement(std::string& out, std::string_view start, std::string_view text, std::string_view end) {
  if (text.empty()) return;
  out += start;
  appendXml(out, text);
  out += end;
}

// References are made of the path, so that they are the same in the next scan. Two names that differ only in what XML
// cannot hold read alike; the second one is told apart by its number.
std::string referenceOf(const std::string& path, ReportPathSet& paths) {
  TextDigest digest = digestOfText(path);
  std::string reference = "file-" + bytesToHex({reinterpret_cast<const std::uint8_t*>(digest.data()), sizeof(digest)});
  const std::uint32_t before = paths.valueOf(path)++;
  if (before > 0) reference += '-' + std::to_string(before + 1);
  return reference;
}

void appendComponent(std::string& out, const ReportRecord& record, const std::string& reference,
                     const std::vector<CertificateBook::EntryPtr>& signers) {
  out += "    <component type=\"file\" bom-ref=\"" + reference + "\">\n";
  appendElement(out, "      <publisher>", record[ReportField::Company], "</publisher>\n");
  const std::string_view product = record[ReportField::Product];
  const std::string_view file = splitPath(record.name()).name;
  out += "      <name>";
  appendXml(out, !product.empty() ? product : !file.empty() ? file : record.name());
  out += "</name>\n";
  appendElement(out, "      <version>", record[ReportField::Version], "</version>\n");
  if (!record[ReportField::Sha1].empty() || !record[ReportField::Sha256].empty()) {
    out += "      <hashes>\n";
    appendElement(out, "        <hash alg=\"SHA-1\">", record[ReportField::Sha1], "</hash>\n");
    appendElement(out, "        <hash alg=\"SHA-256\">", record[ReportField::Sha256], "</hash>\n");
    out += "      </hashes>\n";
  }
  out += "      <properties>\n        <property name=\"brantle:installer\">";
  out += record.isInstaller() ? "yes" : "no";
  out += "</property>\n";
  for (const CertificateBook::EntryPtr& signer : signers) {
    appendElement(out, "        <property name=\"brantle:signer\">", signer->label, "</property>\n");
  }
  out += "      </properties>\n      <evidence>\n        <occurrences>\n";
  appendElement(out, "          <occurrence><location>", record.name(), "</location></occurrence>\n");
  out += "        </occurrences>\n      </evidence>\n    </component>\n";
}

}  // namespace

void reportCycloneDx(const std::u16string& folder, const std::u16string& output, Seconds now) {
  ReportWarnings warnings;
  ReportSurvey survey(folder, warnings, now);
  ReportPathSet paths;
  ReportOutput out(output);
  out.write(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<bom xmlns=\"http://cyclonedx.org/schema/bom/1.5\" version=\"1\">\n"
      "  <components>\n");
  survey.read([&](const SurveyFile& file) {
    appendComponent(out.buffer(), *file.record, referenceOf(file.record->name(), paths), survey.signersOf(file));
    out.spill();
  });
  out.write("  </components>\n");
  if (const ReportReader& reader = survey.reader(); reader.omissions().any()) {
    out.write(
        "  <compositions>\n    <composition>\n      <aggregate>incomplete</aggregate>\n    </composition>\n"
        "  </compositions>\n  <properties>\n    <property name=\"brantle:incomplete\">" +
        reader.omissions().text() + "</property>\n  </properties>\n");
    warnings.tell(reader.incompleteText());
  }
  out.write("</bom>\n");
  out.finish();
}
