// The driver: connect, walk, one record and the certificates of each file, report.
#include "utils/signing/brantle/brantle.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "msi/msi_package.h"
#include "share/qshare.h"
#include "utils/signing/brantle/brantle_details.h"
#include "utils/signing/brantle/brantle_order.h"
#include "utils/signing/brantle/brantle_report.h"
#include "utils/signing/brantle/brantle_share.h"

static constexpr std::uint32_t module_id = QLOG_PROG;

namespace {

// File kinds that can carry a signature.
constexpr std::array<std::u16string_view, 9> signed_kinds = {u"exe", u"dll", u"cab", u"cat", u"ctl",
                                                             u"msi", u"xpi", u"ocx", u"sys"};

bool carriesCertificates(const std::u16string& path) {
  const qchar* extension = qstr_extension(path.c_str());
  if (extension == nullptr) return false;
  for (const std::u16string_view kind : signed_kinds) {
    if (qstr_equal_nocase(extension, kind)) return true;
  }
  return false;
}

constexpr const qchar* order_name = u"order";
constexpr const qchar* report_name = u"info.xml";
constexpr const qchar* other_report_name = u"info-new.xml";  // while another program has the report open

void wipe(std::u16string& text) noexcept {
  qmem_wipe(text.data(), text.capacity() * sizeof(qchar));
  text.clear();
}

}  // namespace

Brantle::Brantle() = default;

Brantle::~Brantle() noexcept(false) {
  closeScan();
  wipePassword();
}

void Brantle::setReposPath(std::u16string path) { reposPath = std::move(path); }

void Brantle::setOutputPath(std::u16string path) {
  infoXmlPath = qpath_join(path, report_name);
  outputPath = std::move(path);
}

void Brantle::setUserName(std::u16string name) { userName = std::move(name); }

void Brantle::setPassword(std::u16string text) {
  wipePassword();
  password.assign(text);
  wipe(text);  // a move would leave a short password behind in the moved-from object
}

void Brantle::setDomain(std::u16string name) { domain = std::move(name); }

void Brantle::wipePassword() noexcept { wipe(password); }

std::int32_t Brantle::invoke() noexcept {
  try {
    return runScan();
  } catch (...) {
    (void)qstr_console_printf(u"Exception thrown!!! in Brantle::invoke.");
    return BRANTLE_EXCEPTION;
  }
}

std::int32_t Brantle::runScan() {
  qshare_enable();
  if (nwMode != 0) {
    const std::int32_t connected = connectNwShare();
    if (connected != BRANTLE_OK) return connected;
  }
  const std::uint32_t opened = openWalk();
  if (qlib_is_cancelled()) return BRANTLE_INTERRUPTED;
  if (reposPath.empty()) return BRANTLE_INVALID_PATH;
  if (opened != QERR_OK) {
    (void)qstr_console_printf(u"\nInvalid Repos Path: [%s] specified.ecode %d: %s.\n", reposPath, opened,
                              qerr_get_string(opened));
    return BRANTLE_INVALID_PATH;
  }
  if (checkAccess != 0) return BRANTLE_OK;
  const std::int32_t result = scanEntries();
  report.reset();  // of a scan that failed, nothing stays
  detailsFile.reset();
  order.reset();
  return result;
}

std::int32_t Brantle::connectNwShare() {
  std::uint32_t bad_argument = 0;
  const std::uint32_t code = brantle_share_connect({reposPath, domain, userName, password}, &bad_argument);
  shareConnected = code == 0;
  if (shareConnected) return BRANTLE_OK;
  if (qlib_is_cancelled()) return BRANTLE_INTERRUPTED;
  (void)qstr_console_printf(u"Netuseadd() returned %lu (arge# = %lu)\n", code, bad_argument);
  switch (code) {
    case BRANTLE_SHARE_BAD_NETPATH:
    case BRANTLE_SHARE_BAD_NET_NAME:
      return BRANTLE_INVALID_PATH;
    case BRANTLE_SHARE_CREDENTIAL_CONFLICT:
      return BRANTLE_CONNECT_CONFLICT;
    default:
      return BRANTLE_CONNECT_FAILED;
  }
}

// Opens the walk and fetches its first entry, so that a path without entries fails here.
std::uint32_t Brantle::openWalk() {
  walker.reset(new (std::nothrow) qfile_itr);
  if (walker == nullptr) return QERR_LOW_MEMORY;
  const qerr_t opened = qfile_itr_open(walker.get(), reposPath.c_str());
  if (opened != QERR_OK) return opened;
  const std::size_t above = walker->levels.front().directory_length;
  const std::uint32_t code = nextEntry();
  const bool isStart = isDirectory && !walker->lists_start && !walker->selects;
  belowRepository = (isStart ? currentFile.size() : above) + 1;
  return code;
}

std::uint32_t Brantle::nextEntry() {
  currentFile.clear();
  const qchar* path = nullptr;
  std::uint32_t directory = 0;
  std::uint32_t symlink = 0;
  const qerr_t code = qfile_itr_next(walker.get(), &path, &directory, &symlink);
  if (code != QERR_OK) return code;
  if (path != nullptr) currentFile = path;
  isDirectory = directory != 0;
  isLink = symlink != 0;
  return QERR_OK;
}

std::int32_t Brantle::scanEntries() {
  if (!outputPath.empty()) qfile_remove_temporaries(outputPath.c_str());
  unwritten.noOutput = outputPath.empty() && !qpath_empty_is_root();
  if (certsOnly == 0 && !unwritten.noOutput) report = std::make_unique<BrantleReport>(infoXmlPath);
  if (report && !part.isWhole()) order = std::make_unique<BrantleOrder>(qpath_join(outputPath, order_name), part);
  if (order) report->wantDigest();
  if (report && details != BRANTLE_DETAILS_OFF) beginDetails();
  // The end of the walk and an error in its middle end the loop alike: the report has what was gathered.
  std::uint32_t walked = QERR_OK;
  for (; walked == QERR_OK && !qlib_is_cancelled(); walked = nextEntry()) {
    if (isDirectory || qfile_is_temporary(currentFile.c_str())) continue;
    if (isOurs()) {
      qlog_end_repeats();  // equal lines of two files are not the same
      handleFile();
      if (currentFile.empty()) return BRANTLE_EMPTY_ENTRY;
    }
    ++fileOrdinal;
  }
  closeFile();
  countMissed();
  unwritten.output = outputPath;
  unwritten.certificates = sgn_store_cache_failures(storeCache.get());
  if (qlib_is_cancelled()) return BRANTLE_INTERRUPTED;
  if (report) finishReport();
  if (unwritten.noOutput) QLOG(QLOG_WARNING, u"The output directory is empty: nothing was written.\n");
  return BRANTLE_OK;
}

void Brantle::countMissed() {
  const qfile_left_out& walked = walker->left_out;
  missed.ended_early = walked.ended_early;
  if (part.index > 1) return;  // every part walks alike, so that one alone counts what the walk left out
  missed.directories = walked.directories;
  missed.files += walked.files;
  for (const qfile_left_out::place& one : walked.first) missed.remember(one.path, one.code);
}

bool Brantle::isOurs() {
  const std::u16string_view path(currentFile);
  return !order || order->next(path.substr(std::min(belowRepository, path.size())));
}

// If memory runs out on one file, the file is left out and the scan goes on.
void Brantle::handleFile() {
  ++done.files;
  if (watching != nullptr) watching->onFile(currentFile, done);
  closeFile();
  isWhole = true;
  isNoFile = false;
  if (detailsFile) detailsFile->beginFile(fileOrdinal, currentFile, openFile);
  try {
    gatherFile();
  } catch (const std::bad_alloc&) {
    leaveFileOut(QERR_LOW_MEMORY, false);
  }
  if (detailsFile) endFileDetails();
}

void Brantle::gatherFile() {
  recordAdded = false;
  packageSize = 0;
  currentNames.reset();
  bool told = false;
  if (certsOnly == 0) {
    const std::uint32_t code = populateCurrentEXEInfo();
    if (code == QERR_LOW_MEMORY) throw std::bad_alloc();
    told = code != QERR_OK;
    if (told) {
      QLOG_AS(QLOG_WARNING, "Brantle::invoke", u"Could'nt get Installer Info for:[%s], ecode %d: %s.\n", currentFile,
              code, qerr_get_string(code));
    }
  }
  if (currentFile.empty()) return;
  if (carriesCertificates(currentFile)) {
    (void)blib_file_open(openFile, currentFile.c_str());
    const std::uint32_t code = populateCertNamesMapAndExtractCerts();
    if (code == QERR_LOW_MEMORY) throw std::bad_alloc();
    told = told || (cabFile != 0 && code != QERR_OK);
  }
  if (qlib_is_cancelled()) return;  // what was read may have been cut short
  // A record of half a file would pass for that of the file. From a disk it is kept, because it shows the damage.
  const bool half_read = openFile.file.get() != QFILE_INVALID && qfile_failure(openFile.file.get()) != QERR_OK;
  if (recordAdded && !(half_read && qpath_is_unc(currentFile.c_str()))) {
    ++done.records;
    for (const sgn_cert_name* name = currentNames.get(); name != nullptr; name = name->next) ++done.certificates;
    if (report) report->add(currentRecord, currentNames.get());
    if (detailsFile) detailsFile->setRecord(currentRecord, currentNames.get());
    if (order) order->addRecord();
  }
  checkReading(told);
}

// A link that leads nowhere, to itself or to a device is not a skipped file.
void Brantle::checkReading(bool told) {
  qerr_t code = openFile.open_code;
  if (code != QERR_OK) {
    constexpr qerr_t no_file[] = {QERR_NOT_FOUND, 6, 20, 40};  // also: no such device, not a directory, too many links
    isNoFile = isLink && std::find(std::begin(no_file), std::end(no_file), code) != std::end(no_file);
    if (isNoFile) return;
    leaveFileOut(code, told);
    return;
  }
  if (openFile.file.get() == QFILE_INVALID) return;
  const std::uint64_t had = openFile.image ? openFile.image->full_size : packageSize;
  done.bytes += had;
  code = qfile_failure(openFile.file.get());
  qfile_stamp now;
  if (code == QERR_OK && had != 0 && qfile_get_stamp(openFile.file.get(), &now) == QERR_OK && now.size < had) {
    code = QERR_IO;  // the file has shrunk
  }
  if (code != QERR_OK) leaveFileOut(code, false);
}

// `told`: the problem was already logged.
void Brantle::leaveFileOut(std::uint32_t code, bool told) {
  ++missed.files;
  missed.remember(currentFile, code);
  isWhole = false;
  if (told) return;
  QLOG(QLOG_WARNING, u"Failed to read file %s. ecode %d: %s.\n", currentFile, code, qerr_get_string(code));
}

void Brantle::finishReport() {
  auto how = qfile_committed::renamed;
  const qerr_t code = report->finish(incompleteText(), other_report_name, &how);
  noteDocument(report_name, other_report_name, code, how);
  if (code != QERR_OK) return;
  if (order) finishOrder();
  finishDetails(how);
}

// What became of a document of the scan, for the log and for whoever asks later.
void Brantle::noteDocument(const qchar* name, const qchar* otherName, std::uint32_t code, qfile_committed how) {
  const std::u16string path = qpath_join(outputPath, name);
  if (code != QERR_OK) {
    QLOG(QLOG_WARNING, u"Failed to write %s. ecode %d: %s.\n", path, code, qerr_get_string(code));
    unwritten.documents.push_back({name, path, {}, code});
  } else if (how == qfile_committed::beside) {
    const std::u16string instead = qpath_join(outputPath, otherName);
    QLOG(QLOG_WARNING, u"%s is in use; the new one is %s.\n", path, instead);
    unwritten.documents.push_back({name, path, instead, QERR_SHARING});
  } else if (how == qfile_committed::copied) {
    QLOG(QLOG_WARNING, u"%s is in use and was overwritten in place.\n", path);
  }
}

void Brantle::finishOrder() {
  noteDocument(order_name, u"", order->finish(report->digest()), qfile_committed::renamed);
}

std::string Brantle::incompleteText() const {
  if (missed.ended_early) return "incomplete: the walk ended early";
  const auto counted = [](std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + (count == 1 ? one : many);
  };
  std::string text;
  if (missed.directories != 0) text = counted(missed.directories, " directory", " directories");
  if (missed.files != 0) text += (text.empty() ? "" : ", ") + counted(missed.files, " file", " files");
  return text.empty() ? text : "incomplete: " + text;
}

// Null for a file that cannot be opened or is no package.
const std::shared_ptr<msi_package>& Brantle::currentPackage() {
  if (!packageTried && blib_file_open(openFile, currentFile.c_str()) == QERR_OK) {
    (void)msi_package_open_file(currentFile.c_str(), openFile.file.get(), &openPackage);
  }
  packageTried = true;
  return openPackage;
}

void Brantle::closeFile() {
  openPackage.reset();
  packageTried = false;
  openFile.reset();
}

void Brantle::closeScan() {
  closeFile();  // no share is given back while a file on it is open
  if (walker != nullptr) {
    (void)qfile_itr_close(walker.get());
    walker.reset();
  }
  if (nwMode != 0 && shareConnected) {
    const std::uint32_t code = brantle_share_disconnect(reposPath);
    if (code != 0) (void)qstr_console_printf(u"NetUseDel() returned %lu\n", code);
    shareConnected = false;
  }
}
