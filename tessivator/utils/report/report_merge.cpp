// Several scans as one.
#include <set>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"

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

// Merges certificate files into the target folder.
class CertificateCopier {
 public:
  CertificateCopier(const std::u16string& target, ReportWarnings& warnings) : target_(target), warnings_(warnings) {}

  // The next folder's files; what was copied from another one is looked at again.
  void enter(const std::u16string& folder) {
    folder_ = &folder;
    done_.clear();
  }

  void copy(const ReportRecord& record) {
    for (const CertificateName& name : record.certificates) {
      if (done_.size() >= max_done) done_.clear();
      if (done_.insert(name).second) copyOne(qstr_to_wide(bytesToHex(name)) + u".cer");
    }
  }

 private:
  static constexpr std::size_t max_done = std::size_t{1} << 16U;

  // As in one scan, the last one of several that share a name stays, and the others are told.
  void copyOne(const std::u16string& file) {
    const std::u16string source = qpath_join(*folder_, file);
    const std::u16string target = qpath_join(target_, file);
    std::string content;
    if (const std::string problem = readCertificateFile(source, content); !problem.empty()) {
      warnings_.tell(source + u": " + qstr_to_wide(problem));
      return;
    }
    std::string before;
    if (readCertificateFile(target, before).empty()) {
      if (before == content) return;
      warnings_.tell(target + u": another certificate of this name was replaced by that of " + *folder_);
    }
    const qerr_t code = qfile_write_whole(target.c_str(), content.data(), content.size(), 0);
    if (code != QERR_OK) throw ReportError(target + u": " + qerr_get_string(code));
  }

  const std::u16string& target_;
  ReportWarnings& warnings_;
  const std::u16string* folder_ = nullptr;
  std::set<CertificateName> done_;
};

}  // namespace

void reportMerge(const std::u16string& target, const std::vector<std::u16string>& folders) {
  if (!qfile_exists(target.c_str())) {
    const qerr_t code = qfile_mkdir(target.c_str());
    if (code != QERR_OK) throw ReportError(target + u": " + qerr_get_string(code));
  }
  ReportWarnings warnings;
  CertificateCopier certificates(target, warnings);
  ReportOmissions omissions;
  ReportPathSet paths;
  ReportOutput out(qpath_join(target, u"info.xml"));
  out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ExecutableData>\n");
  for (std::uint32_t part = 1; const std::u16string& folder : folders) {
    ReportReader reader(folder);
    certificates.enter(folder);
    reader.read([&](const ReportRecord& record, std::uint64_t) {
      std::uint32_t& found = paths.valueOf(record.name());
      if (found != 0 && found != part) {
        throw ReportError(qstr_to_wide(record.name()) + u": stands in " + folders[found - 1] + u" and in " + folder);
      }
      found = part;
      appendRecord(out.buffer(), record);
      out.spill();
      certificates.copy(record);
    });
    omissions.add(reader.omissions());
    ++part;
  }
  if (omissions.any()) out.write("    <!-- incomplete: " + omissions.text() + " -->\n");
  out.write("</ExecutableData>\n");
  out.finish();
}
