// Records from the lines of a details file. Its bytes are hostile input.
#pragma once

#include <memory>
#include <string>

#include "common/qlib/qtypes.h"
#include "details/details_records.h"

// Reads one file, a line at a time; takes memory for the largest line and its values, at most some 30 MiB. Used by one
// thread at a time.
class details_reader {
 public:
  details_reader() noexcept;
  details_reader(const details_reader&) = delete;
  details_reader& operator=(const details_reader&) = delete;
  ~details_reader();

  // Opens the file and reads its header. QERR_ARG1 without a path, the file's code, QERR_INVALID for a file that is no
  // details file or one of another version, QERR_LOW_MEMORY.
  [[nodiscard]] qerr_t open(const qchar* path, details_header& header) noexcept;

  // The next line that is a file, a certificate, members or the end; keys and kinds of lines that are not known are
  // passed over. QERR_END behind the end's line, QERR_CORRUPTED for what is no line of a details file, or when the file
  // ends without its end; the file's code, QERR_LOW_MEMORY. After a failure `line` holds nothing of use.
  [[nodiscard]] qerr_t next(details_line& line) noexcept;

  // The last line alone, wherever reading stands; it goes on there. Codes as those of next.
  [[nodiscard]] qerr_t read_end(details_end& end) noexcept;

  // Where the line that came last begins, in bytes; and reads the line there, after which reading goes on behind it.
  [[nodiscard]] std::uint64_t offset() const noexcept;
  [[nodiscard]] qerr_t next_at(std::uint64_t offset, details_line& line) noexcept;

  // What was wrong, for QERR_INVALID and QERR_CORRUPTED: "line 3: \"size\" is no number". Lines are counted from 1;
  // where next_at has been, "offset 1234: ..." instead. Valid until the next call.
  [[nodiscard]] const char* problem() const noexcept;

 private:
  class state;
  std::unique_ptr<state> state_;
};
