// The details beside a report, as far as they belong to it, record by record.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "details/details_reader.h"
#include "utils/report/report_record.h"
#include "utils/report/report_warnings.h"

class ReportDetails {
 public:
  // Looks into `folder`, which a scan wrote into. Details that belong to another report or cannot be read are told on
  // `warnings` and ignored; then, and when there are none, isThere() is false.
  ReportDetails(const std::u16string& folder, ReportWarnings& warnings);

  [[nodiscard]] bool isThere() const noexcept { return isThere_; }
  // Records of the report, as the last line says.
  [[nodiscard]] std::uint64_t records() const noexcept { return end_.records; }

  // Reads from the start to the end. Throws ReportError for what is damaged, as do the following.
  void readAll(const std::function<void(const details_line& line)>& visit);

  // Called for each certificate on the way to a record's line.
  std::function<void(const details_certificate& certificate)> seen;
  // The line of the next record of the report, which is `record`; valid until the next call.
  [[nodiscard]] const details_file& next(const ReportRecord& record);
  // Where that line begins, and the line there once more.
  [[nodiscard]] std::uint64_t offset() const noexcept { return reader_.offset(); }
  [[nodiscard]] const details_file& readAt(std::uint64_t offset);

 private:
  [[nodiscard]] qerr_t open(const std::u16string& reportPath, std::u16string& problem);
  [[noreturn]] void fail(const std::u16string& text) const;
  [[nodiscard]] bool step();

  std::u16string path_;
  details_reader reader_;
  details_end end_;
  details_line line_;
  bool isThere_ = false;
};
