// Name digests, places of certificate files, texts of certificate names, and the error queue's log.
#include <gtest/gtest.h>

#include "common/qlib/qcksum.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_oneline.h"
#include "sgn/sgn_utl.h"
#include "sgn/support.h"
#include "sgn/tables.h"
#include "support/faulty_provider.h"
#include "utl/utl_user.h"

namespace {

using SgnNames = Runtime;

using Text = QmemPtr<qchar>;
using IntegerPtr = std::unique_ptr<ASN1_INTEGER, FreeWith<ASN1_INTEGER_free>>;

std::string narrow(const Text& text) { return text ? qstr_to_utf8(text.get()) : "(null)"; }

IntegerPtr integer(std::int64_t value) {
  IntegerPtr out(ASN1_INTEGER_new());
  EXPECT_EQ(ASN1_INTEGER_set_int64(out.get(), value), 1);
  return out;
}

// The digests of "/CN=a" and the serial's magnitude, worked out with sha1sum and sha256sum.
struct DigestCase {
  std::int64_t serial;
  const char* sha1;
  const char* sha256;
};
const DigestCase digest_cases[] = {
    {0x1234, "afc7c24113302e1cbbf110c74ad71f380d977564",
     "534a11a40e0791707b08edff7d2ef95b9ecc1719f73c97c480a1e74a00252e93"},
    {-0x1234, "afc7c24113302e1cbbf110c74ad71f380d977564",
     "534a11a40e0791707b08edff7d2ef95b9ecc1719f73c97c480a1e74a00252e93"},  // the magnitude counts
    {0x80, "e3f8ad0006df92fe7350a255cf907a845e52aca3",
     "c5ee838d2bc73345a65c0337f339f5345e801d31168d834d36933721259f15a4"},  // no leading zero octet
};

TEST_F(SgnNames, DigestsIssuerAndSerial) {
  for (const DigestCase& one : digest_cases) {
    for (const std::uint32_t which : {0U, 2U, 4U, 6U}) {
      qchar* sha1 = nullptr;
      qchar* sha256 = nullptr;
      ASSERT_EQ(sgn_get_qsha_issuer_serial("/CN=a", integer(one.serial).get(), &sha1, &sha256, which), QERR_OK);
      EXPECT_EQ(narrow(Text(sha1)), (which & SGN_QSHA_SHA1) != 0 ? one.sha1 : "(null)") << which;
      EXPECT_EQ(narrow(Text(sha256)), (which & SGN_QSHA_SHA256) != 0 ? one.sha256 : "(null)") << which;
    }
  }
}

TEST_F(SgnNames, RefusesWhatCannotBeDigested) {
  qchar* text = nullptr;
  const IntegerPtr serial = integer(1);
  EXPECT_EQ(sgn_get_qsha_issuer_serial(nullptr, serial.get(), &text, &text, 6), QERR_ARG1);
  EXPECT_EQ(sgn_get_qsha_issuer_serial("", nullptr, &text, &text, 6), QERR_ARG2);
  EXPECT_EQ(sgn_get_qsha_issuer_serial("", serial.get(), nullptr, &text, 2), QERR_ARG3);
  EXPECT_EQ(sgn_get_qsha_issuer_serial("", serial.get(), &text, nullptr, 4), QERR_ARG4);
  serial->length = -1;
  EXPECT_EQ(sgn_get_qsha_issuer_serial("", serial.get(), &text, &text, 6), QERR_INVALID);
  serial->length = 1;
  EXPECT_EQ(text, nullptr);
}

TEST_F(SgnNames, PutsTogetherThePlaceOfAFile) {
  const std::u16string separator(1, qpath_native_separator());
  const struct {
    const qchar* directory;
    const qchar* stem;
    std::u16string path;
  } cases[] = {
      {u"out", u"abc", u"out" + separator + u"abc.cer"},
      {u"", u"abc", separator + u"abc.cer"},
      {u"out", nullptr, u"out" + separator},
      {u"\\\\server\\share", u"abc", u"\\\\server\\share\\abc.cer"},
  };
  for (const auto& one : cases) {
    qchar* path = nullptr;
    ASSERT_EQ(sgn_get_internal_dir_alloc(&path, one.directory, one.stem), QERR_OK);
    EXPECT_EQ(narrow(Text(path)), qstr_to_utf8(one.path));
  }
  EXPECT_EQ(sgn_get_internal_dir_alloc(nullptr, u"out", u"abc"), QERR_ARG1);
}

// Without a directory everything depends on the service, which no test machine has.
TEST_F(SgnNames, WithoutAServiceThereIsNoInternalDirectory) {
  qchar* path = nullptr;
  for (const qchar* const stem : {static_cast<const qchar*>(nullptr), u"abc"}) {
    EXPECT_EQ(sgn_get_internal_dir_alloc(&path, nullptr, stem), QERR_NOT_FOUND);
  }
  EXPECT_EQ(path, nullptr);
  EXPECT_EQ(sgn_store_x509(certificate("pki/rsa/leaf.pem").get(), nullptr, nullptr, 5), QERR_NOT_FOUND);
}

TEST_F(SgnNames, WritesNamesInOneLine) {
  const SgnX509Owner leaf = certificate("pki/rsa/leaf.pem");
  ASSERT_TRUE(leaf);
  EXPECT_EQ(narrow(Text(sgn_get_subject_alloc(leaf.get()))), "/C=SE/O=Fixture Works/CN=Fixture Signer RSA leaf");
  EXPECT_EQ(narrow(Text(sgn_get_issuer_alloc(leaf.get()))),
            "/C=SE/O=Fixture Works/OU=Signing/CN=Fixture Intermediate RSA");
  EXPECT_EQ(narrow(Text(sgn_get_issuer_alloc(certificate("pki/odd/issuer_empty.pem").get()))), "");
  EXPECT_EQ(sgn_get_subject_alloc(nullptr), nullptr);
  EXPECT_EQ(sgn_get_issuer_alloc(nullptr), nullptr);
}

std::string line_of(const char* type, int kind, std::string_view value) {
  const std::unique_ptr<X509_NAME, FreeWith<X509_NAME_free>> name(X509_NAME_new());
  const std::unique_ptr<ASN1_OBJECT, FreeWith<ASN1_OBJECT_free>> object(OBJ_txt2obj(type, 1));
  const auto* const bytes = reinterpret_cast<const unsigned char*>(value.data());
  EXPECT_EQ(X509_NAME_add_entry_by_OBJ(name.get(), object.get(), V_ASN1_UTF8STRING, bytes,
                                       static_cast<int>(value.size()), -1, 0),
            1);
  X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name.get(), 0))->type = kind;  // no decoder takes a GeneralString
  std::string line;
  const qerr_t code = sgn_oneline(name.get(), line);
  return code == QERR_OK ? line : std::to_string(code);
}

// The table is made without the linked OpenSSL, which knows more types than those that print with a name.
TEST_F(SgnNames, PrintsTheTypesOfOldByName) {
  std::istringstream in(file_text(fixture("scripts/attribute_types.tsv")));
  std::size_t rows = 0;
  for (std::string type, name; in >> type && std::getline(in >> std::ws, name); ++rows) {
    EXPECT_EQ(line_of(type.c_str(), V_ASN1_UTF8STRING, "v"), "/" + name + "=v");
  }
  EXPECT_GT(rows, 800U);
  OBJ_create("1.3.6.1.4.1.99999.77", "fixtureType", "type that a host registers");
  for (const std::string type :
       {"1.3.6.1.4.1.99999.77", "2.5.4.97", "2.999.18446744073709551616", "2.100000000000000000099", "0.39"}) {
    EXPECT_EQ(line_of(type.c_str(), V_ASN1_UTF8STRING, "v"), "/" + type + "=v");
  }
}

TEST_F(SgnNames, PrintsValuesByteForByte) {
  using namespace std::string_literals;
  constexpr std::size_t most = std::size_t{1} << 20;
  const struct {
    int kind;
    std::string value;
    std::string line;
  } cases[] = {
      {V_ASN1_UTF8STRING, " a/b+c\\d=~"s, "/CN= a/b+c\\d=~"},
      {V_ASN1_UTF8STRING, "\x1f\x7f\xc3\xa5\0"s, "/CN=\\x1F\\x7F\\xC3\\xA5\\x00"},
      {V_ASN1_GENERALSTRING, "\0\0\0a\0\0\0\n"s, "/CN=a\\x0A"},
      {V_ASN1_GENERALSTRING, "\0\0\0a\0\0b\0"s, "/CN=\\x00\\x00\\x00a\\x00\\x00b\\x00"},
      {V_ASN1_GENERALSTRING, "\0\0\0ab"s, "/CN=\\x00\\x00\\x00ab"},
      {V_ASN1_BMPSTRING, "\0\0\0a"s, "/CN=\\x00\\x00\\x00a"},
      {V_ASN1_IA5STRING, std::string(most - 4, 'a'), "/CN=" + std::string(most - 4, 'a')},
      {V_ASN1_IA5STRING, std::string(most - 3, 'a'), "22"},
  };
  for (const auto& one : cases) EXPECT_EQ(line_of("2.5.4.3", one.kind, one.value), one.line);
}

TEST_F(SgnNames, StoresOneCertificate) {
  const fs::path folder = scratch_folder("one");
  const SgnX509Owner leaf = certificate("pki/rsa/leaf.pem");
  EXPECT_EQ(sgn_store_x509(leaf.get(), folder.u16string().c_str(), nullptr, 5), QERR_OK);
  expect_certificate_files(folder, {"6094c63c905babeb29376d7219b1387b45f401bb9a2adec98dac47c74f7e91da"});
  EXPECT_NE(sgn_store_x509(leaf.get(), (folder / "missing").u16string().c_str(), nullptr, 5), QERR_OK);
  EXPECT_EQ(sgn_store_x509(nullptr, u"", nullptr, 5), QERR_ARG1);
}

// A file that cannot be opened is the caller's business; one that cannot be filled is only logged. Neither leaves
// anything behind.
TEST_F(SgnNames, LeavesNothingOfAFileThatCannotBeWritten) {
  const fs::path folder = scratch_folder("faults");
  const SgnX509Owner leaf = certificate("pki/rsa/leaf.pem");
  const auto store = [&] { return sgn_store_x509(leaf.get(), folder.u16string().c_str(), nullptr, 5); };
  {
    faulty_provider disk;
    disk.fail(file_op::create_exclusive, 1, QERR_PERMISSION, faulty_provider::ALWAYS);
    EXPECT_EQ(store(), QERR_PERMISSION);
  }
  {
    faulty_provider disk;
    disk.room(100);
    EXPECT_EQ(store(), QERR_OK);
  }
  {
    faulty_provider disk;
    disk.fail(file_op::rename, 1, QERR_PERMISSION, faulty_provider::ALWAYS);
    EXPECT_EQ(store(), QERR_PERMISSION);
  }
  EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
