// The details files of a scan's parts as that of the scan.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "details/details_records.h"
#include "utils/report/report_output.h"
#include "utils/report/report_warnings.h"

class MergedDetails {
 public:
  // `folders` are the parts, all of them.
  MergedDetails(const std::vector<std::u16string>& folders, ReportWarnings& warnings)
      : folders_(folders), warnings_(warnings) {}

  // Looks at headers and ends. `reportOf` tells the SHA-256 of a folder's report, which its details must name. False
  // when no folder has details; when some lack them or they do not fit, a line says so.
  [[nodiscard]] bool prepare(const std::function<std::string_view(std::size_t)>& reportOf);
  // Writes them to `out`: files by ordinal, what belongs to a file before it, each certificate once. `report` is the
  // merged report's SHA-256. False, and a line says why, when one of them is damaged. Throws ReportError when `out`
  // cannot be written.
  [[nodiscard]] bool write(ReportOutput& out, const std::string& report);

  // Whether all is well: details of every part, or of none.
  [[nodiscard]] bool areGood() const noexcept { return good_; }

 private:
  bool open(std::size_t folder, std::string_view report);
  bool refuse(std::size_t folder, const char16_t* why);

  const std::vector<std::u16string>& folders_;
  ReportWarnings& warnings_;
  details_header header_;
  details_end end_;
  bool hasHeader_ = false;
  bool good_ = true;
};
