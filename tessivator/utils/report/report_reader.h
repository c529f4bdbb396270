// Reading info.xml as a stream: one record at a time, whatever the report's size.
#pragma once

#include <functional>
#include <string>

#include "common/qlib/qlimits.h"
#include "utils/report/report_record.h"

// Texts longer than this many bytes, and records with more certificates, are no scan's work.
inline constexpr std::size_t REPORT_MAX_TEXT = std::size_t{1} << 20U;
inline constexpr std::size_t REPORT_MAX_CERTIFICATES = QLIMIT_NAMES_OF_A_FILE;

class ReportReader {
 public:
  // `folder` is what a scan wrote into.
  explicit ReportReader(std::u16string folder);

  // Called for each record in the report's order. The record is the reader's and changes with the next one; `offset` is
  // where it begins, in bytes.
  using Visitor = std::function<void(const ReportRecord& record, std::uint64_t offset)>;

  // Reads the whole report. Throws ReportError when it cannot be read or is damaged, then with line and column; what
  // `visit` throws comes through.
  void read(const Visitor& visit);
  // One record again, by its offset.
  [[nodiscard]] ReportRecord readAt(std::uint64_t offset) const;

  // Known once the report has been read.
  [[nodiscard]] const ReportOmissions& omissions() const noexcept { return omissions_; }
  // The same as a sentence with the report's path.
  [[nodiscard]] std::u16string incompleteText() const;
  [[nodiscard]] const std::u16string& folder() const noexcept { return folder_; }
  [[nodiscard]] const std::u16string& path() const noexcept { return path_; }

 private:
  std::u16string folder_;
  std::u16string path_;
  ReportOmissions omissions_;
};
