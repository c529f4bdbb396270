// A report's records as the bytes that a scan wrote, several times as fast as through an XML parser: a report has one
// form, and every byte is held against it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qfile.h"
#include "utils/report/report_digest.h"
#include "utils/report/report_record.h"

class ReportPieces {
 public:
  // `digest`: makes the report's SHA-256 on the way. Throws ReportError when the file cannot be opened.
  ReportPieces(std::u16string path, bool digest);

  enum class Found : std::uint8_t {
    record,
    end,
    odd,  // anything that no scan writes; an XML parser may still make something of it
  };
  // The next record. Throws ReportError when the file cannot be read, std::bad_alloc.
  [[nodiscard]] Found next();

  // Of the record that came last, valid until the next call: its lines, and its path as it stands there.
  [[nodiscard]] std::string_view bytes() const noexcept { return bytes_; }
  [[nodiscard]] std::string_view escapedName() const noexcept { return name_; }
  [[nodiscard]] const std::vector<CertificateName>& certificates() const noexcept { return certificates_; }

  // Known at the end.
  [[nodiscard]] const ReportOmissions& omissions() const noexcept { return omissions_; }
  [[nodiscard]] std::string digest() { return digest_ ? digest_->text() : std::string(); }

 private:
  class Cursor;
  Found begin(Cursor& cursor);
  Found finish(Cursor& cursor);
  Found record(Cursor& cursor);
  bool fields(Cursor& cursor);
  bool list(Cursor& cursor);
  [[nodiscard]] bool more();

  std::u16string path_;
  QfileOwner file_;
  std::optional<ReportDigest> digest_;
  std::vector<char> buffer_;
  std::size_t at_ = 0;   // where the next record begins
  std::size_t end_ = 0;  // of what was read
  bool started_ = false;
  bool ended_ = false;  // nothing can follow
  bool atEnd_ = false;  // the file is read
  std::string_view bytes_;
  std::string_view name_;
  std::vector<CertificateName> certificates_;
  ReportOmissions omissions_;
};

// A value of a report without its escapes.
[[nodiscard]] std::string unescaped(std::string_view text);
