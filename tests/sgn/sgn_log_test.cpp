// What operators read in the log, line by line.
#include <gtest/gtest.h>

#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_cache.h"
#include "sgn/sgn_err.h"
#include "sgn/support.h"

namespace {

using SgnLog = Runtime;

void expect_lines(const std::string& log, std::initializer_list<std::string> lines) {
  for (const std::string& line : lines) EXPECT_NE(log.find(line), log.npos) << line << " in\n" << log;
}

TEST_F(SgnLog, TellsAFilesExtraction) {
  const fs::path folder = scratch_folder("log_files");
  const auto cabinet = [](const char* name) { return fixture_path("cabinets/" + std::string(name)); };
  const std::string log = logged(QLOG_SGN, [&] {
    extract_file(fixture_path("images/exe64_rsa.exe"), folder, 0);
    extract_file(fixture_path("images/exe64.exe"), folder, 0);
    extract_file(fixture_path("README.md"), folder, 0);
    extract_file(fixture_path("images/exe64_rsa.exe"), folder / "missing", 0);
    extract_file(fixture_path("images/signature_damaged.exe"), folder, 0);
    for (const char* const name : {"none.cab", "size_3.cab", "plain.cab", "signature_garbage.cab"}) {
      sgn_p7* out = nullptr;
      EXPECT_NE(sgn_extract_cab_cert_alloc(qstr_to_wide(cabinet(name)).c_str(), &out), 0U);
    }
  });
  expect_lines(
      log,
      {"Trying to extracing certs from ", "Found 1 PKCS7 to verify in ", "Decrypting 0x",
       "Extracted cert. Subject: '/C=SE/O=Fixture Works/CN=Fixture Signer RSA leaf'. Issuer: "
       "'/C=SE/O=Fixture Works/OU=Signing/CN=Fixture Intermediate RSA'",
       ".cer' to Vantry cert store", "Failed to get Authenticode Info from ", "Extracting certificate from file [",
       "] completed with size [0]. err = 2", "Failed to open file '" + folder.string(), "Unable to load PKCS7 object",
       "1 of 1 signatures of ", "signature_damaged.exe cannot be decoded",
       "Failed to open file " + cabinet("none.cab") + ". Error = 2", cabinet("size_3.cab") + " is not a valid cab file",
       "Cab file " + cabinet("plain.cab") + " is not signed.", "Failed to decrypt certificate. Error = -1"});
  const std::size_t first = log.find("cannot be decoded");
  EXPECT_EQ(log.find("cannot be decoded", first + 1), std::string::npos) << "of an unsigned file";
}

// The last of two certificates of one name stands.
TEST_F(SgnLog, NamesBothFilesOfOneName) {
  const fs::path folder = scratch_folder("log_names");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  const std::string genuine = der::signed_data(der::certificate(1, der::common_name("vendor")), "");
  std::string forged = genuine;
  forged.replace(forged.find("subject"), 7, "SUBJECT");
  const auto extract = [&](const std::string& bytes, const char16_t* path) {
    sgn_cert_name* names = nullptr;
    EXPECT_EQ(sgn_x509_store_certs_of_signature(std::as_bytes(std::span(bytes)), path, folder.u16string().c_str(),
                                                &names, 1, cache.get()),
              QERR_OK);
    return file_text(folder / (take_names(names).at(0) + ".cer"));
  };
  const std::string log = logged(QLOG_SGN, [&] {
    const std::string first = extract(genuine, u"genuine.msi");
    EXPECT_EQ(extract(genuine, u"again.msi"), first);
    EXPECT_NE(extract(forged, u"forged.msi"), first);
    EXPECT_EQ(extract(genuine, u"late.msi"), first);
  });
  expect_lines(log, {"the certificate from genuine.msi is overwritten by another one from forged.msi",
                     "the certificate from forged.msi is overwritten by another one from late.msi"});
}

TEST_F(SgnLog, DumpsAndEmptiesTheErrorQueue) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_PEM, ERR_R_MALLOC_FAILURE);
  ERR_raise(ERR_LIB_ASN1, ERR_R_NESTED_ASN1_ERROR);
  const std::string log = logged(QLOG_SGN, [] { sgn_dump_err(); });
  expect_lines(log,
               {"    SSL Error Stack Entry:[", "        LIB:    PEM routines", "        LIB:    asn1 encoding routines",
                "        FUNC:   ", "        REASON: malloc failure", "        REASON: nested asn1 error"});
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
