// The details file, written line by line beside the report (docs/details.md).
#pragma once

#include <string>
#include <string_view>

#include "blib/blib_bin.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qfile_replacement.h"
#include "details/details_writer.h"
#include "utils/signing/brantle/brantle.h"

// One details file. Failures, want of memory among them, are kept for finish: what comes after one costs nothing.
class BrantleDetails {
 public:
  // Begins the file at `path`, where the old one stays until finish has succeeded.
  BrantleDetails(const std::u16string& path, const details_header& header) noexcept;

  // The file of this place in the walk comes next. Opens it, so that what its line says of its state is older than
  // every byte that is read. Nothing is kept of a file that no endFile follows.
  void beginFile(std::uint64_t ordinal, const std::u16string& path, blib_file& file) noexcept;
  // What the report says of it.
  void setRecord(const BrantleRecord& record, const sgn_cert_name* names) noexcept;
  // Writes its line. `whole`: all that had to be read was.
  void endFile(blib_file& file, bool whole) noexcept;

  // Ends the file and puts it in its place. `end` lacks the number of lines and the time. QERR_OK, or the code of the
  // first step that failed; then the new file is gone.
  [[nodiscard]] qerr_t finish(details_end end) noexcept;

 private:
  template <class Step>
  void step(Step step) noexcept;
  template <class Record>
  void put(const Record& record);
  void describe(const std::u16string& path, blib_file& file);
  void addProblem(const char* code);
  void drain() noexcept;
  void fail(qerr_t code) noexcept;

  qfile_replacement file_;
  qerr_t code_;
  details_writer writer_;
  std::string pending_;  // lines that are not yet in the file
  std::uint64_t lines_ = 0;
  details_file line_;  // of the current file
  qfile_stamp stamp_;  // its state when it was opened
  bool stamped_ = false;
};
