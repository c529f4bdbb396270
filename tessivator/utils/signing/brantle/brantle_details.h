// The details file, written line by line beside the report (docs/details.md).
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "blib/blib_authenticode.h"
#include "blib/blib_bin.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qfile_replacement.h"
#include "details/details_writer.h"
#include "inv/inv_cfci.h"
#include "sgn/sgn_facts.h"
#include "utils/signing/brantle/brantle.h"

class msi_package;
struct msi_package_facts;

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
  void setPackage(const msi_package_facts& facts) noexcept;
  void setInstallerRule(const char* rule) noexcept;
  // Makes the Authenticode digests of the current file's image, if it gets one, while its bytes are read for others.
  [[nodiscard]] const inv_digest_watch* watch() const noexcept { return &watch_; }
  // Writes its line. `package`: the file as one, or null. `whole`: all that had to be read so far was.
  void endFile(blib_file& file, msi_package* package, bool whole) noexcept;

  // Ends the file and puts it in its place, or, while another program has the old one open, where `how` says. With
  // `how` set to `beside` it goes there at once. `end` lacks the number of lines and the time. QERR_OK, or the code of
  // the first step that failed; then the new file is gone.
  [[nodiscard]] qerr_t finish(details_end end, const qchar* otherName, qfile_committed* how) noexcept;

 private:
  // A line is never lost: without memory for one there are no details.
  template <class Step>
  void step(Step step) noexcept {
    if (code_ != QERR_OK) return;
    try {
      step();
    } catch (...) {
      fail(QERR_LOW_MEMORY);
    }
  }
  template <class Record>
  void put(const Record& record) {
    std::string_view line;
    if (const qerr_t code = writer_.write(record, line); code != QERR_OK) return fail(code);
    append(line);
  }
  void append(std::string_view line);
  void describe(const std::u16string& path, blib_file& file);
  void complete(blib_file& file, msi_package* package);
  void addProblem(std::string_view code, std::uint64_t count = 1);
  template <class Problem>
  void addProblems(const std::vector<Problem>& problems);

  details_image& imagePart();
  void describeImage(blib_bin* image);
  // What the file's signatures say, once for each file.
  void describeSignatures(qfile_t file, blib_bin* image, msi_package* package);
  void tellCertificate(const sgn_certificate_place& place);
  void tellInner(const sgn_facts& facts);
  void tellMembers(Bytes list);
  void keepDigestsThatWereTold();
  const qcksum_tap* beginDigests(blib_bin* image) noexcept;
  void endDigests();

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
  bool whole_ = false;                    // nothing of it is cut or unread so far
  bool described_ = false;                // its signatures are
  std::unordered_set<std::string> told_;  // certificates that have their lines, by SHA-256
  blib_authenticode authenticode_;
  std::uint32_t kinds_ = 0;  // of digests that were begun
  inv_digest_watch watch_;
};
