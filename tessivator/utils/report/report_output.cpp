#include "utils/report/report_output.h"

#include "common/qlib/qerr.h"
#include "utils/report/report_record.h"
#include "utils/report/report_streams.h"

ReportOutput::ReportOutput(std::u16string path) : path_(std::move(path)) {
  buffer_.reserve(write_bytes + write_bytes / 4);
  if (!path_.empty()) check(file_.begin(path_.c_str()));
}

void ReportOutput::write(std::string_view text) {
  buffer_ += text;
  spill();
}

void ReportOutput::flush() {
  if (!path_.empty()) {
    check(file_.write(buffer_.data(), buffer_.size()));
  } else if (!reportPutBytes(buffer_)) {
    throw ReportError(u"standard output: cannot be written");
  }
  buffer_.clear();
}

void ReportOutput::finish() {
  flush();
  if (!path_.empty()) check(file_.commit(true));
}

void ReportOutput::check(qerr_t code) const {
  if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
}
