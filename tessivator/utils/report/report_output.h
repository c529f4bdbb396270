// Where a command's result goes: a file, which is there whole or not at all, or a device, a pipe or standard output.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/qlib/qfile_replacement.h"
#include "utils/report/report_digest.h"
#include "utils/report/report_streams.h"

class ReportOutput {
 public:
  // To standard output when `path` is empty or "-". Throws ReportError, as all of these do. Without finish() nothing
  // remains of a file.
  explicit ReportOutput(std::u16string path);

  void write(std::string_view text);
  // For many small pieces: append to it, then call spill().
  [[nodiscard]] std::string& buffer() noexcept { return buffer_; }
  void spill() {
    if (buffer_.size() >= write_bytes) flush();
  }
  // What was given so far is written.
  void flush();
  // The SHA-256 of all that is given is wanted: called before anything is. digest() gives it after the last flush.
  void wantDigest() { digest_.emplace(); }
  [[nodiscard]] std::string digest() { return digest_ ? digest_->text() : std::string(); }
  // Everything is written; a file takes its place.
  void finish();

 private:
  static constexpr std::size_t write_bytes = std::size_t{1} << 18U;
  void check(qerr_t code) const;

  std::u16string path_;
  ReportDevice device_;
  qfile_replacement file_;
  std::optional<ReportDigest> digest_;
  std::string buffer_;
};
