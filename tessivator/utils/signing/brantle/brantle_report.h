// The report document info.xml, written record by record, so memory does not grow with it.
#pragma once

#include <tinyxml2.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "common/qlib/qfile_replacement.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_digest.h"

// `value` in UTF-8 as the report has it, with U+FFFD for what XML does not allow: false when there was any.
bool brantleReportText(std::string& text, std::u16string_view value);

// One report. A failure is kept until finish: the records after it cost nothing.
class BrantleReport {
 public:
  // Begins the document at `path`. The old one stays until finish has succeeded.
  explicit BrantleReport(const std::u16string& path);

  // Enables the SHA-256 of the document. Call before anything is added.
  void wantDigest() { digest_.emplace(); }
  // The SHA-256 in lower-case hexadecimal, after finish has succeeded; empty when it failed.
  [[nodiscard]] const std::string& digest() const noexcept { return digestText_; }

  // Adds a record and the names of its certificate files (may be null).
  void add(const BrantleRecord& record, const sgn_cert_name* names);

  // Ends the document, with a comment unless `comment` is empty, and puts it in its place, or, while another program
  // has the old one open, where `how` says. QERR_OK, or the code of the first step that failed; then the new document
  // is gone.
  [[nodiscard]] qerr_t finish(const std::string& comment, const qchar* otherName, qfile_committed* how);

 private:
  void push(bool isBare, const sgn_cert_name* names);
  void drain();

  qfile_replacement file_;
  qerr_t code_;
  std::optional<BrantleDigest> digest_;
  std::string digestText_;
  tinyxml2::XMLPrinter xml_;
  std::array<std::string, BrantleRecord::count> texts_;  // of the record that is being added
};
