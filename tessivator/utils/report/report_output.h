// Where a command's result goes: a file, which is there whole or not at all, or standard output.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qfile_provider.h"

class ReportOutput {
 public:
  // To standard output when `path` is empty. Throws ReportError, as all of these do.
  explicit ReportOutput(std::u16string path);
  ReportOutput(const ReportOutput&) = delete;
  ReportOutput& operator=(const ReportOutput&) = delete;
  // Without finish() nothing remains of a file.
  ~ReportOutput();

  void write(std::string_view text);
  // For many small pieces: append to it, then call spill().
  [[nodiscard]] std::string& buffer() noexcept { return buffer_; }
  void spill() {
    if (buffer_.size() >= A_WRITE) flush();
  }
  // Everything is written; a file takes its place.
  void finish();

 private:
  static constexpr std::size_t A_WRITE = std::size_t{1} << 18U;
  void flush();
  [[noreturn]] void fail(qerr_t code) const;

  std::u16string path_;
  std::u16string temporary_;
  std::unique_ptr<qfile_object> file_;
  std::string buffer_;
};
