// Lines of a details file from records.
#pragma once

#include <memory>
#include <string_view>

#include "common/qlib/qtypes.h"
#include "details/details_records.h"

// Keeps its memory from line to line; used by one thread at a time.
class details_writer {
 public:
  details_writer() noexcept;
  details_writer(const details_writer&) = delete;
  details_writer& operator=(const details_writer&) = delete;
  ~details_writer();

  // The record as one line of JSON (RFC 8259) with its line feed, at most DETAILS_LARGEST_LINE bytes; it lies here
  // until the next call. What does not fit is left out value by value: `problems` of a file or certificate then counts
  // it as "KEY_cut", and a file is not complete. Text that is no UTF-8 gets U+FFFD. QERR_LOW_MEMORY, and `line` is
  // unchanged.
  [[nodiscard]] qerr_t write(const details_header& record, std::string_view& line) noexcept;
  [[nodiscard]] qerr_t write(const details_file& record, std::string_view& line) noexcept;
  [[nodiscard]] qerr_t write(const details_certificate& record, std::string_view& line) noexcept;
  [[nodiscard]] qerr_t write(const details_members& record, std::string_view& line) noexcept;
  [[nodiscard]] qerr_t write(const details_end& record, std::string_view& line) noexcept;

 private:
  template <class Record>
  qerr_t write_any(const Record& record, std::string_view& line) noexcept;

  class state;
  std::unique_ptr<state> state_;  // made with the first line
};
