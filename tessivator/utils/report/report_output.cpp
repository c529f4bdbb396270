#include "utils/report/report_output.h"

#include "common/qlib/qerr.h"
#include "utils/report/report_record.h"

ReportOutput::ReportOutput(std::u16string path) : path_(std::move(path)) {
  buffer_.reserve(write_bytes + write_bytes / 4);
  if (path_ == u"-") path_.clear();
  if (path_.empty()) return;
  check(device_.open(path_));
  if (!device_.isOpen()) check(file_.begin(path_.c_str()));
}

void ReportOutput::write(std::string_view text) {
  buffer_ += text;
  spill();
}

void ReportOutput::flush() {
  if (digest_ && !buffer_.empty()) digest_->add(buffer_);
  if (device_.isOpen() || path_.empty()) {
    if (device_.isOpen() ? !device_.write(buffer_) : !reportPutBytes(buffer_)) {
      throw ReportError((path_.empty() ? u"standard output" : path_) + u": cannot be written");
    }
  } else {
    check(file_.write(buffer_.data(), buffer_.size()));
  }
  buffer_.clear();
}

void ReportOutput::finish() {
  flush();
  if (!path_.empty() && !device_.isOpen()) check(file_.commit(true));
}

void ReportOutput::check(qerr_t code) const {
  if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
}
