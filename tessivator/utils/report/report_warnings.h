// Warnings of one command on standard error.
#pragma once

#include <cstddef>
#include <string_view>

// Lines for standard error. Of many the first ones are told one by one, the others by their number.
class ReportWarnings {
 public:
  ReportWarnings() = default;
  ReportWarnings(const ReportWarnings&) = delete;
  ReportWarnings& operator=(const ReportWarnings&) = delete;
  ~ReportWarnings();
  void tell(std::u16string_view text);

 private:
  std::size_t count_ = 0;
};
