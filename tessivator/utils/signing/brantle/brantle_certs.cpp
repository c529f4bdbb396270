// Certificate extraction: chooses the routine for a file and records its certificate files.
#include <utility>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_pkcs7.h"
#include "utils/signing/brantle/brantle.h"

static constexpr std::uint32_t module_id = QLOG_PROG;
#undef QLOG_SOURCE
#define QLOG_SOURCE "brantle.cpp"

std::uint32_t Brantle::populateCertNamesMapAndExtractCerts() {
  sgn_cert_name* names = nullptr;
  std::uint32_t result = QERR_OK;
  try {
    if (storeCache == nullptr) storeCache.reset(sgn_store_cache_create());
    if (extractByRoute(&names, result) != QERR_OK) {
      sgn_cert_names_free(names);  // a list that an error cut short is not recorded
      return result;
    }
  } catch (...) {
    // The signature routines do not throw; only memory for their result can run out.
    (void)qstr_console_printf(u"Error!!!,Exception thrown by sgn, Trying for other files\n");
    if (result != QERR_OK) return result;
  }
  SgnCertNamesOwner list(names);
  if (!recordAdded) appendBareRecord();
  if (qlog_is_enabled(QLOG_WARNING, module_id) != 0) {
    QLOG_AS(QLOG_WARNING, "Brantle::populateCertNamesMapAndExtractCerts", u"\nCerts extracted from %s are: \n",
            currentFile);
    for (const sgn_cert_name* node = list.get(); node != nullptr; node = node->next) {
      QLOG_AS(QLOG_WARNING, "Brantle::populateCertNamesMapAndExtractCerts", u"\t\t%s\n", node->name);
    }
  }
  currentNames = std::move(list);
  return QERR_OK;
}

// The request decides, not the file: with cabFile every file is read as a cabinet.
std::uint32_t Brantle::extractByRoute(sgn_cert_name** names, std::uint32_t& result) {
  if (cabFile != 0) return extractFromCabinet(names, result);
  const auto all = static_cast<std::uint32_t>(allCerts);
  const qchar* const path = currentFile.c_str();
  result =
      blib_file_open_image(openFile, path) == QERR_OK
          ? sgn_x509_store_certs_of_image(openFile.image.get(), path, outputPath.c_str(), names, all, storeCache.get())
          : sgn_x509_store_certs_of_package(currentPackage().get(), path, outputPath.c_str(), names, all,
                                            storeCache.get());
  if (result != QERR_OK)
    QLOG_AS(QLOG_ERROR, "Brantle::populateCertNamesMapAndExtractCerts", u"Failed to process p7 err = 0x%x\n", result);
  return result;
}

std::uint32_t Brantle::extractFromCabinet(sgn_cert_name** names, std::uint32_t& result) {
  sgn_p7* object = nullptr;
  result = sgn_extract_cab_cert_of_file_alloc(currentFile.c_str(), openFile, &object, storeCache.get());
  const SgnP7Owner p7(object);
  if (result != QERR_OK) {
    QLOG_AS(QLOG_WARNING, "Brantle::populateCertNamesMapAndExtractCerts",
            u"Failed to get certs from file %s. ecode %d: %s.\n", currentFile, result, qerr_get_string(result));
    return result;
  }
  if (p7 == nullptr) return QERR_OK;
  result = sgn_process_p7_and_store_cert_ex(p7.get(), outputPath.c_str(), names, 0,
                                            static_cast<std::uint32_t>(allCerts), storeCache.get());
  if (result != QERR_OK)
    QLOG_AS(QLOG_ERROR, "Brantle::populateCertNamesMapAndExtractCerts", u"Failed to process p7 err = 0x%x\n", result);
  return result;
}

// A file with certificates but without product information is still listed; consumers recognise such a record by the
// missing "SHA256" key.
void Brantle::appendBareRecord() {
  for (std::u16string& text : currentRecord.texts) text.clear();
  completeRecord();
  currentRecord.isBare = true;
}
