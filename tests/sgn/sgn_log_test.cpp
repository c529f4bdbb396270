// What operators read in the log, line by line.
#include <gtest/gtest.h>

#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_err.h"
#include "sgn/support.h"

namespace {

// All lines that `body` logs with every level of this component on, as UTF-8.
template <class Body>
std::string logged(Body body) {
  const fs::path file = scratch("log") / "lines.log";
  EXPECT_EQ(qlog_set_log_file(file.u16string().c_str()), 0U);
  EXPECT_EQ(qlog_set_logtype(u"SGN=127"), 0U);
  (void)qlog_recompute_union();
  body();
  EXPECT_EQ(qlog_set_logtype(nullptr), 0U);
  (void)qlog_recompute_union();
  EXPECT_EQ(qlog_set_log_file(u""), 0U);
  const std::string bytes = read_bytes(file);
  std::u16string text;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {  // behind the byte-order mark
    text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
  }
  return qstr_to_utf8(text);
}

void expect_lines(const std::string& log, std::initializer_list<std::string> lines) {
  for (const std::string& line : lines) EXPECT_NE(log.find(line), std::string::npos) << line << " in\n" << log;
}

TEST(SgnLog, TellsAFilesExtraction) {
  const fs::path folder = scratch("log_files");
  const std::string log = logged([&] {
    extract_file(fixture("images/exe64_rsa.exe"), folder, 0);
    extract_file(fixture("images/exe64.exe"), folder, 0);
    extract_file(fixture("README.md"), folder, 0);
    extract_file(fixture("images/exe64_rsa.exe"), folder / "missing", 0);
  });
  const std::string extracted =
      std::string("Extracted cert. Subject: '/C=SE/O=Fixture Works/CN=Fixture Signer RSA leaf'. Issuer: ") +
      "'/C=SE/O=Fixture Works/OU=Signing/CN=Fixture Intermediate RSA'";
  expect_lines(
      log, {"Trying to extracing certs from ", "Found 1 PKCS7 to verify in ", "Decrypting 0x", extracted,
            ".cer' to Vantry cert store", "Failed to get Authenticode Info from ", "Extracting certificate from file [",
            "] completed with size [0]. err = 2", "Failed to open file '" + folder.string()});
}

TEST(SgnLog, TellsWhatIsWrongWithASignatureOrCabinet) {
  const auto cabinet = [](const std::string& name) { return fixture("cabinets/" + name); };
  const std::string log = logged([&] {
    P7Ptr p7;
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

TEST(SgnLog, DumpsAndEmptiesTheErrorQueue) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_PEM, ERR_R_MALLOC_FAILURE);
  ERR_raise(ERR_LIB_ASN1, ERR_R_NESTED_ASN1_ERROR);
  const std::string log = logged([] { sgn_dump_err(); });
  expect_lines(log,
               {"    SSL Error Stack Entry:[", "        LIB:    PEM routines", "        LIB:    asn1 encoding routines",
                "        FUNC:   ", "        REASON: malloc failure", "        REASON: nested asn1 error"});
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
