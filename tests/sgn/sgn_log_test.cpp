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
  for (const std::string& line : lines) EXPECT_NE(log.find(line), std::string::npos) << line << " in\n" << log;
}

TEST_F(SgnLog, TellsAFilesExtraction) {
  const fs::path folder = scratch_folder("log_files");
  const std::string log = logged(QLOG_SGN, [&] {
    extract_file(fixture("images/exe64_rsa.exe"), folder, 0);
    extract_file(fixture("images/exe64.exe"), folder, 0);
    extract_file(fixture("README.md"), folder, 0);
    extract_file(fixture("images/exe64_rsa.exe"), folder / "missing", 0);
    extract_file(fixture("images/signature_damaged.exe"), folder, 0);
  });
  const std::string extracted =
      std::string("Extracted cert. Subject: '/C=SE/O=Fixture Works/CN=Fixture Signer RSA leaf'. Issuer: ") +
      "'/C=SE/O=Fixture Works/OU=Signing/CN=Fixture Intermediate RSA'";
  expect_lines(
      log, {"Trying to extracing certs from ", "Found 1 PKCS7 to verify in ", "Decrypting 0x", extracted,
            ".cer' to Vantry cert store", "Failed to get Authenticode Info from ", "Extracting certificate from file [",
            "] completed with size [0]. err = 2", "Failed to open file '" + folder.string(), "1 of 1 signatures of ",
            "signature_damaged.exe cannot be decoded"});
  const std::size_t first = log.find("cannot be decoded");
  EXPECT_EQ(log.find("cannot be decoded", first + 1), std::string::npos) << "of an unsigned file";
}

TEST_F(SgnLog, NamesBothFilesOfOneName) {
  const fs::path folder = scratch_folder("log_names");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  const std::string genuine = der::signed_data(der::certificate(1, der::common_name("vendor")), "");
  std::string forged = genuine;
  forged.replace(forged.find("subject"), 7, "SUBJECT");
  const std::string log = logged(QLOG_SGN, [&] {
    for (const auto& [bytes, path] :
         {std::pair(genuine, u"genuine.msi"), {genuine, u"again.msi"}, {forged, u"forged.msi"}}) {
      sgn_cert_name* names = nullptr;
      EXPECT_EQ(sgn_x509_store_certs_of_signature(std::as_bytes(std::span(bytes)), path, folder.u16string().c_str(),
                                                  &names, 1, cache.get()),
                QERR_OK);
      sgn_cert_names_free(names);
    }
  });
  expect_lines(log, {"the certificate from genuine.msi is overwritten by another one from forged.msi"});
}

TEST_F(SgnLog, TellsWhatIsWrongWithASignatureOrCabinet) {
  const auto cabinet = [](const std::string& name) { return fixture("cabinets/" + name); };
  const std::string log = logged(QLOG_SGN, [&] {
    SgnP7Owner p7;
    EXPECT_EQ(decode("", p7), QERR_ALL_BITS);
    for (const char* const name : {"none.cab", "size_3.cab", "plain.cab", "signature_garbage.cab"}) {
      sgn_p7* out = nullptr;
      EXPECT_NE(sgn_extract_cab_cert_alloc(cabinet(name).u16string().c_str(), &out), 0U);
    }
  });
  expect_lines(
      log,
      {"Unable to load PKCS7 object", "Failed to open file " + cabinet("none.cab").string() + ". Error = 2",
       cabinet("size_3.cab").string() + " is not a valid cab file",
       "Cab file " + cabinet("plain.cab").string() + " is not signed.", "Failed to decrypt certificate. Error = -1"});
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
