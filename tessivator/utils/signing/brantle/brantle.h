// One scan request: walk a repository, gather a record and the certificates of every file, write the report.
//
// A front end creates a Brantle on the heap, fills it through the setters (or parseArgs), calls invoke once and
// destroys it, also after a failure: the destructor ends the walk and removes the share connection of the request. One
// thread per object; different objects may run on different threads at the same time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "blib/blib_bin.h"
#include "common/qlib/qfile_itr.h"
#include "common/qlib/qfile_replacement.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"
#include "inv/inv_cfci.h"
#include "sgn/sgn_cache.h"
#include "sgn/sgn_x509.h"
#include "utils/signing/brantle/brantle_part.h"

class BrantleDetails;
class BrantleOrder;
class BrantleReport;
class MsiProductInfoExtractor;
class msi_package;

// Result codes of a request.
inline constexpr std::int32_t BRANTLE_OK = 0;
inline constexpr std::int32_t BRANTLE_EMPTY_ENTRY = 2;           // the walk returned an entry without a path
inline constexpr std::int32_t BRANTLE_USAGE = 22;                // parseArgs only
inline constexpr std::int32_t BRANTLE_INVALID_PATH = 20001;      // repository path or share not found, or nothing in it
inline constexpr std::int32_t BRANTLE_CONNECT_FAILED = 20002;    // share connection refused
inline constexpr std::int32_t BRANTLE_CONNECT_CONFLICT = 20003;  // server already connected with other credentials
inline constexpr std::int32_t BRANTLE_EXCEPTION = -1;
inline constexpr std::int32_t BRANTLE_INTERRUPTED = -2;  // qlib_cancel was called; there is no new report

// What a request writes beside the report (docs/details.md).
inline constexpr std::int32_t BRANTLE_DETAILS_OFF = 0;
inline constexpr std::int32_t BRANTLE_DETAILS_ON = 1;
inline constexpr std::int32_t BRANTLE_DETAILS_DIGESTS = 2;  // with the Authenticode digest of every image

// Path, checksums and product information of one file. The fields are in byte order of their names, as in the report.
// One record is reused for all files, so its strings keep their memory.
struct BrantleRecord {
  enum Field : std::uint8_t { Name, SHA1, SHA256, companyName, isInstaller, productName, productVersion, count };
  static constexpr std::array<const char*, count> names = {"Name",        "SHA1",        "SHA256",        "companyName",
                                                           "isInstaller", "productName", "productVersion"};
  std::array<std::u16string, count> texts;
  bool isBare = false;  // of a file with certificates alone: SHA256 is left out
  std::u16string& operator[](Field field) noexcept { return texts[field]; }
};

// The progress of a request.
struct BrantleTotals {
  std::uint64_t files = 0;  // looked at
  std::uint64_t records = 0;
  std::uint64_t certificates = 0;  // names listed: a certificate counts once for each file that carries it
  std::uint64_t bytes = 0;         // of images and packages
};

// A report that is not in its place.
struct BrantleDocument {
  std::u16string name;     // "info.xml"
  std::u16string path;     // its place
  std::u16string instead;  // where the new one is, because another program has the old one open; empty: there is none
  std::uint32_t code = 0;  // why there is none
};

// What a request could not write. The library itself only logs it.
struct BrantleFailures {
  bool noOutput = false;  // the output directory is empty text, and that is none: nothing was written
  std::vector<BrantleDocument> documents;
  std::u16string output;  // the directory of the certificates
  sgn_store_failures certificates;
};

// Called with each file, on the thread of the request, before it is read.
class BrantleObserver {
 public:
  virtual ~BrantleObserver() = default;
  virtual void onFile(const std::u16string& path, const BrantleTotals& totals) noexcept = 0;
};

class Brantle {
 public:
  Brantle();
  Brantle(const Brantle&) = delete;
  Brantle& operator=(const Brantle&) = delete;
  virtual ~Brantle() noexcept(false);

  // Paths and credentials as the user gave them, unchecked. The output directory is never created.
  void setReposPath(std::u16string path);
  void setOutputPath(std::u16string path);
  void setUserName(std::u16string name);
  void setPassword(std::u16string text);
  void setDomain(std::u16string name);

  // Handles only its part of the files and writes the file "order" beside the report; no effect on a request without a
  // report.
  void setPart(BrantlePart share) noexcept { part = share; }

  // Parses the fixed argument sequences of the command line (argument 0 is the program). BRANTLE_OK, or BRANTLE_USAGE
  // after printing the usage.
  [[nodiscard]] std::int32_t parseArgs(const qchar* const* argv, int argc);

  // Sets `details` from the variable BRANTLE_DETAILS. False for an unknown value: no details then, and the caller
  // reports it.
  [[nodiscard]] bool takeDetailsFromEnvironment();

  // Runs the request. Returns a result code above; does not throw.
  [[nodiscard]] std::int32_t invoke() noexcept;

  // Receives progress, or null; must live until invoke has returned.
  void setObserver(BrantleObserver* observer) noexcept { watching = observer; }
  [[nodiscard]] const BrantleTotals& totals() const noexcept { return done; }

  // What invoke could not write, and what it left out.
  [[nodiscard]] const BrantleFailures& failures() const noexcept { return unwritten; }
  [[nodiscard]] const qfile_left_out& leftOut() const noexcept { return missed; }
  // The latter in numbers: "incomplete: 3 directories, 1 file" or "incomplete: the walk ended early"; empty when
  // nothing.
  [[nodiscard]] std::string incompleteText() const;

  [[nodiscard]] bool hasPassword(std::u16string_view text) const noexcept { return password == text; }
  // Overwrites the password; the destructor does it too.
  void wipePassword() noexcept;

  std::int32_t nwMode = 0;       // the repository lies on a share: connect first, disconnect at destruction
  std::int32_t certsOnly = 0;    // no records, no report
  std::int32_t allCerts = 0;     // every certificate of a signature, not only the signers' own
  std::int32_t cabFile = 0;      // every file is taken as a cabinet
  std::int32_t checkAccess = 0;  // only test that the path can be connected to and opened
  std::int32_t details = BRANTLE_DETAILS_OFF;  // never with certsOnly

 private:
  [[nodiscard]] std::int32_t runScan();
  [[nodiscard]] std::int32_t connectNwShare();
  [[nodiscard]] std::uint32_t openWalk();
  [[nodiscard]] std::uint32_t nextEntry();
  [[nodiscard]] std::int32_t scanEntries();
  [[nodiscard]] bool isOurs();
  void handleFile();
  void gatherFile();
  void checkReading(bool told);
  void leaveFileOut(std::uint32_t code, bool told);
  void countMissed();
  void finishReport();
  void finishOrder();
  void noteDocument(const qchar* name, const qchar* otherName, std::uint32_t code, qfile_committed how);
  void beginDetails();
  void endFileDetails();
  void finishDetails(qfile_committed reportHow);
  [[nodiscard]] std::u16string detailsPath() const;
  void closeFile();
  [[nodiscard]] const std::shared_ptr<msi_package>& currentPackage();
  void closeScan();

  [[nodiscard]] std::uint32_t populateCurrentEXEInfo();
  void appendImageRecord();
  void completeRecord();
  [[nodiscard]] bool appendPackageRecord();
  [[nodiscard]] std::uint32_t getSHA_cksum(const std::u16string& path, std::u16string& sha1, std::u16string& sha256);
  void populateMsiInfo(MsiProductInfoExtractor& extractor, BrantleRecord& record);

  [[nodiscard]] std::uint32_t populateCertNamesMapAndExtractCerts();
  [[nodiscard]] std::uint32_t extractByRoute(sgn_cert_name** names, std::uint32_t& result);
  [[nodiscard]] std::uint32_t extractFromCabinet(sgn_cert_name** names, std::uint32_t& result);
  void appendBareRecord();

  std::u16string userName;
  std::u16string password;
  std::u16string domain;
  BrantleRecord currentRecord;     // complete when recordAdded says so
  SgnCertNamesOwner currentNames;  // of the current file's certificates
  std::u16string currentFile;
  bool recordAdded = false;
  blib_file openFile;                        // the current file: opened once for its record and its certificates
  std::shared_ptr<msi_package> openPackage;  // over openFile
  bool packageTried = false;
  std::u16string reposPath;
  std::u16string infoXmlPath;
  std::u16string outputPath;
  InvCfciOwner fileInfo;
  std::unique_ptr<qfile_itr> walker;
  bool isDirectory = true;
  bool isLink = false;
  bool shareConnected = false;
  SgnStoreCacheOwner storeCache;  // which certificate files this request has already written
  std::unique_ptr<BrantleReport> report;
  std::unique_ptr<BrantleDetails> detailsFile;
  std::uint64_t fileOrdinal = 0;  // of the current file among those of the walk
  bool isNoFile = false;          // the current one is a link that leads to none
  bool isWhole = false;           // nothing of the current file was left out
  BrantlePart part;
  std::unique_ptr<BrantleOrder> order;  // of a part
  std::size_t belowRepository = 0;      // where the walk's paths go on below the repository
  std::uint64_t packageSize = 0;        // of the current package when its digests began
  qfile_left_out missed;
  BrantleFailures unwritten;
  BrantleTotals done;
  BrantleObserver* watching = nullptr;
};
