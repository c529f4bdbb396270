// The report document info.xml, written record by record, so that its size is the disk's affair alone.
#pragma once

#include <tinyxml2.h>

#include <array>
#include <string>

#include "common/qlib/qfile_replacement.h"
#include "utils/signing/brantle/brantle.h"

// One report. Failures are kept for finish: the records that come after one cost nothing.
class BrantleReport {
 public:
  // Begins the document at `path`, where the old one stays until finish has succeeded.
  explicit BrantleReport(const std::u16string& path);

  // Adds a record with the names of its certificate files, which may be null.
  void add(const BrantleRecord& record, const sgn_cert_name* names);

  // Ends the document, with a comment unless `comment` is empty, and puts it in its place. QERR_OK, or the code of the
  // first step that failed; then the new document is gone.
  [[nodiscard]] qerr_t finish(const std::string& comment);

 private:
  void push(bool isBare, const sgn_cert_name* names);
  void drain();

  qfile_replacement file_;
  qerr_t code_;
  tinyxml2::XMLPrinter xml_;
  std::array<std::string, BrantleRecord::count> texts_;  // of the record that is being added
};
