#include "utils/report/report_output.h"

#include <random>

#include "common/qlib/qerr.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_record.h"
#include "utils/report/report_streams.h"

namespace {

// Random, so that nobody can stand ready at it.
std::u16string temporaryBeside(const std::u16string& path) {
  const std::size_t cut = path.rfind(qpath_separator(path.c_str()));
  std::u16string name = cut == std::u16string::npos ? std::u16string() : path.substr(0, cut + 1);
  name += u".brantle-";
  std::random_device source;
  for (int digit = 0; digit < 16; ++digit) name += u"0123456789abcdef"[source() & 15U];
  return name + u".tmp";
}

}  // namespace

ReportOutput::ReportOutput(std::u16string path) : path_(std::move(path)) {
  buffer_.reserve(A_WRITE + A_WRITE / 4);
  if (path_.empty()) return;
  temporary_ = temporaryBeside(path_);
  const qsys_status status = qfile_provider_for(path_.c_str()).create_exclusive(temporary_.c_str(), file_);
  if (!status.ok()) {
    temporary_.clear();
    fail(status.code);
  }
}

ReportOutput::~ReportOutput() {
  file_.reset();
  if (!temporary_.empty()) (void)qfile_delete(temporary_.c_str());
}

void ReportOutput::write(std::string_view text) {
  buffer_ += text;
  spill();
}

void ReportOutput::flush() {
  if (path_.empty()) {
    if (!reportPutBytes(buffer_)) throw ReportError(u"standard output: cannot be written");
    buffer_.clear();
    return;
  }
  std::size_t at = 0;
  while (at < buffer_.size()) {
    std::uint32_t done = 0;
    const qsys_status status = file_->write(buffer_.data() + at, static_cast<std::uint32_t>(buffer_.size() - at), done);
    if (!status.ok() || done == 0) fail(status.ok() ? QERR_IO : status.code);
    at += done;
  }
  buffer_.clear();
}

void ReportOutput::finish() {
  flush();
  if (path_.empty()) return;
  qsys_status status = file_->flush();
  file_.reset();
  if (status.ok()) status = qfile_provider_for(path_.c_str()).rename(temporary_.c_str(), path_.c_str());
  if (!status.ok()) fail(status.code);
  temporary_.clear();
}

void ReportOutput::fail(qerr_t code) const { throw ReportError(path_ + u": " + qerr_get_string(code)); }
