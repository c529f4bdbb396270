#include "utils/report/report_details.h"

#include "common/qlib/qcksum.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_text.h"

ReportDetails::ReportDetails(const std::u16string& folder, ReportWarnings& warnings)
    : path_(qpath_join(folder, qstr_to_wide(DETAILS_FILE_NAME))) {
  if (!qfile_exists(path_.c_str())) return;
  std::u16string problem;
  const qerr_t code = open(qpath_join(folder, u"info.xml"), problem);
  isThere_ = code == QERR_OK && problem.empty();
  if (isThere_) return;
  if (problem.empty()) problem = qstr_to_wide(reader_.problem());
  if (problem.empty()) problem = qerr_get_string(code);
  warnings.tell(path_ + u": ignored: " + problem);
}

qerr_t ReportDetails::open(const std::u16string& reportPath, std::u16string& problem) {
  details_header header;
  qerr_t code = reader_.open(path_.c_str(), header);
  if (code == QERR_OK) code = reader_.read_end(end_);
  if (code != QERR_OK) return code;
  qcksum digest{};
  code = qcksum_compute_file(QCKSUM_SHA256, reportPath.c_str(), nullptr, nullptr, &digest, 0, 0);
  if (code != QERR_OK) return code;
  if (bytesToHex({digest.value, digest.length}) != end_.info_sha256) problem = u"it belongs to another report";
  return QERR_OK;
}

void ReportDetails::fail(const std::u16string& text) const { throw ReportError(path_ + u": " + text); }

// The next line; false behind the last one.
bool ReportDetails::step() {
  const qerr_t code = reader_.next(line_);
  if (code == QERR_OK) return true;
  if (code == QERR_LOW_MEMORY) throw std::bad_alloc();
  if (code == QERR_CORRUPTED) fail(qstr_to_wide(reader_.problem()));
  if (code != QERR_END) fail(qerr_get_string(code));
  return false;
}

void ReportDetails::readAll(const std::function<void(const details_line& line)>& visit) {
  while (step()) visit(line_);
  details_header header;
  if (reader_.open(path_.c_str(), header) != QERR_OK) fail(u"it cannot be read again");
}

const details_file& ReportDetails::next(const ReportRecord& record) {
  while (step()) {
    if (const auto* const certificate = std::get_if<details_certificate>(&line_)) {
      if (seen) seen(*certificate);
    }
    const auto* const file = std::get_if<details_file>(&line_);
    if (file == nullptr || !file->record) continue;
    if (file->name != record.name()) break;
    return *file;
  }
  fail(u"it does not tell of the report's files in their order; without it the report can be read");
}

const details_file& ReportDetails::readAt(std::uint64_t offset) {
  if (reader_.next_at(offset, line_) != QERR_OK || !std::holds_alternative<details_file>(line_)) {
    fail(u"it cannot be read again");
  }
  return std::get<details_file>(line_);
}
