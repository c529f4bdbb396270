// The record of one file: from the information record of an image, or from the Property table of a package.
#include <utility>

#include "common/qlib/qcksum.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "msi/msi_database.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_details.h"
#include "utils/signing/brantle/msiExtractProductInfo.h"

static constexpr std::uint32_t module_id = QLOG_PROG;
#undef QLOG_SOURCE
#define QLOG_SOURCE "brantle.cpp"

namespace {

constexpr std::uint16_t image_types = INV_TYPE_IMAGE32 | INV_TYPE_IMAGE64;

const qchar* orEmpty(const qchar* text) { return text != nullptr ? text : u""; }

void setSha1(std::u16string& text, const qcksum& sum) {
  text.resize(QCKSUM_SHA1_TEXT - 1);
  if (qcksum_SHA1_to_qstr(sum.value, text.data(), QCKSUM_SHA1_BIN_LEN) != QERR_OK) text.clear();
}

void setSha256(std::u16string& text, const qcksum& sum) {
  text.resize(QCKSUM_SHA256_TEXT - 1);
  if (qcksum_SHA2_to_qstr(sum.value, text.data(), QCKSUM_SHA256_BIN_LEN) != QERR_OK) text.clear();
}

}  // namespace

std::uint32_t Brantle::populateCurrentEXEInfo() {
  recordAdded = false;
  fileInfo.reset();
  inv_cfci_t* info = nullptr;
  std::int64_t newest_time = 0;
  const qerr_t code =
      inv_get_cfci_of_file_alloc(currentFile.c_str(), openFile, &info, &newest_time, 1,
                                 detailsFile && details == BRANTLE_DETAILS_DIGESTS ? detailsFile->watch() : nullptr);
  fileInfo.reset(info);
  if (code == QERR_OK && fileInfo != nullptr && (fileInfo->type_flags & image_types) != 0) {
    appendImageRecord();
    fileInfo.reset();
    return code;
  }
  fileInfo.reset();
  const qchar* extension = qstr_extension(currentFile.c_str());
  if (extension != nullptr && qstr_equal_nocase(extension, u"msi") && appendPackageRecord()) return QERR_OK;
  return code;
}

void Brantle::appendImageRecord() {
  setSha1(currentRecord[BrantleRecord::SHA1], fileInfo->sha1);
  setSha256(currentRecord[BrantleRecord::SHA256], fileInfo->sha256);
  currentRecord[BrantleRecord::productName] = orEmpty(fileInfo->ProductName);
  currentRecord[BrantleRecord::companyName] = orEmpty(fileInfo->CompanyName);
  currentRecord[BrantleRecord::productVersion] = orEmpty(fileInfo->ProductVersion);
  currentRecord[BrantleRecord::isInstaller] =
      (fileInfo->classification_flags & INV_CLASS_INSTALLER) != 0 ? u"yes" : u"no";
  if (detailsFile) detailsFile->setInstallerRule(fileInfo->installer_rule);
  completeRecord();
}

void Brantle::completeRecord() {
  currentRecord[BrantleRecord::Name] = currentFile;
  currentRecord.isBare = false;
  recordAdded = true;
}

// False when the package cannot be opened; it then gets no record.
bool Brantle::appendPackageRecord() {
  try {
    MsiProductInfoExtractor extractor(currentFile, currentPackage());
    populateMsiInfo(extractor, currentRecord);
    if (detailsFile) detailsFile->setPackage(extractor.facts());
  } catch (const std::uint32_t rc) {
    QLOG_AS(QLOG_ERROR, "Brantle::populateCurrentEXEInfo", u"Invalid Msi rc =%d, error = %d\n", rc,
            msi_last_system_error());
    return false;
  }
  std::u16string& sha1 = currentRecord[BrantleRecord::SHA1];
  std::u16string& sha256 = currentRecord[BrantleRecord::SHA256];
  if (getSHA_cksum(currentFile, sha1, sha256) != QERR_OK) {
    sha1.clear();
    sha256.clear();
  }
  completeRecord();
  return true;
}

std::uint32_t Brantle::getSHA_cksum(const std::u16string& path, std::u16string& sha1, std::u16string& sha256) {
  qerr_t code = blib_file_open(openFile, path.c_str());
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Failed to open file '%s' for computing SHA1 err = %d.\n", path, code);
    return code;
  }
  (void)qfile_size(openFile.file.get(), &packageSize);
  qcksum sum1{};
  qcksum sum256{};
  code = qcksum_compute_whole(QCKSUM_SHA1 | QCKSUM_SHA256, openFile.file.get(), &sum1, nullptr, &sum256);
  if (code == QERR_CKSUM_BYPASSED) {
    QLOG(QLOG_ERROR, u"Checksum bypassed for file %s\n", path);
  } else if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Failed to compute the checksum of file '%s'. err = %d.\n", path, code);
  }
  if (code == QERR_OK || code == QERR_CKSUM_BYPASSED) {
    setSha1(sha1, sum1);
    setSha256(sha256, sum256);
  }
  return code;
}

void Brantle::populateMsiInfo(MsiProductInfoExtractor& extractor, BrantleRecord& record) {
  static constexpr struct {
    const qchar* property;
    BrantleRecord::Field field;
  } properties[] = {{u"ProductName", BrantleRecord::productName},
                    {u"Manufacturer", BrantleRecord::companyName},
                    {u"ProductVersion", BrantleRecord::productVersion}};
  record[BrantleRecord::isInstaller] = u"yes";
  for (const auto& [property, field] : properties) {
    if (extractor.getPropertyValueFromMsi(property, record[field]) != 0) record[field].clear();
  }
}
