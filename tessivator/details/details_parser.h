// One line of a details file.
#pragma once

#include <memory>

#include "details/details_records.h"

class details_parser {
 public:
  enum class result : std::uint8_t { good, bad, unknown };  // unknown: an object of a type that we do not know

  details_parser();
  details_parser(const details_parser&) = delete;
  details_parser& operator=(const details_parser&) = delete;
  ~details_parser();

  // The line of `length` bytes at `text`, behind which stands one byte that may be overwritten, as the line is. May
  // throw std::bad_alloc.
  [[nodiscard]] result parse(char* text, std::size_t length, details_line& line);
  // What was bad.
  [[nodiscard]] const char* problem() const noexcept;

 private:
  class state;
  std::unique_ptr<state> state_;
};
