// Several scans as one.
#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_merge_certificates.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"
#include "utils/report/report_warnings.h"

namespace {

void appendRecord(std::string& out, const ReportRecord& record) {
  out += "    <Executable>\n";
  for (std::size_t i = 0; i < REPORT_FIELDS.size(); ++i) {
    if (!record.present[i]) continue;
    out.append("        <").append(REPORT_FIELDS[i]).append(">");
    appendXml(out, record.texts[i]);
    out.append("</").append(REPORT_FIELDS[i]).append(">\n");
  }
  out += "        <CertificatesExtracted count=\"" + std::to_string(record.certificates.size()) + '"';
  if (record.certificates.empty()) {
    out += "/>\n    </Executable>\n";
    return;
  }
  out += ">\n";
  for (const CertificateName& name : record.certificates) {
    out += "            <Certificate name=\"" + bytesToHex(name) + "\"/>\n";
  }
  out += "        </CertificatesExtracted>\n    </Executable>\n";
}

// U+FFFD stands for any character or byte that XML cannot hold: equal paths with it can be two files.
bool mayDiffer(const std::string& path) noexcept { return path.find("\xEF\xBF\xBD") != std::string::npos; }

// Everything is read, and the new report on the device, before the first certificate is written.
void mergeInto(const std::u16string& target, const std::vector<std::u16string>& folders) {
  ReportWarnings warnings;
  MergedCertificates certificates(folders, warnings);
  ReportOmissions omissions;
  ReportPathSet paths;
  ReportOutput out(qpath_join(target, u"info.xml"));
  out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ExecutableData>\n");
  for (std::uint32_t at = 0; at < folders.size(); ++at) {
    ReportReader reader(folders[at]);
    reader.read([&](const ReportRecord& record, std::uint64_t) {
      if (!mayDiffer(record.name())) {
        std::uint32_t& found = paths.valueOf(record.name());
        if (found != 0 && found != at + 1) {
          throw ReportError(qstr_to_wide(record.name()) + u": stands in " + folders[found - 1] + u" and in " +
                            folders[at]);
        }
        found = at + 1;
      }
      appendRecord(out.buffer(), record);
      out.spill();
      certificates.note(at, record.certificates);
    });
    omissions.add(reader.omissions());
  }
  if (omissions.any()) out.write("    <!-- incomplete: " + omissions.text() + " -->\n");
  out.write("</ExecutableData>\n");
  out.flush();
  certificates.copyTo(target);
  out.finish();
}

}  // namespace

void reportMerge(const std::u16string& target, const std::vector<std::u16string>& folders) {
  const bool isNew = !qfile_exists(target.c_str());
  if (isNew) {
    const qerr_t code = qfile_mkdir(target.c_str());
    if (code != QERR_OK) throw ReportError(target + u": " + qerr_get_string(code));
  }
  try {
    mergeInto(target, folders);
  } catch (...) {
    if (isNew) (void)qfile_rmdir(target.c_str());  // stays when anything was written
    throw;
  }
}
