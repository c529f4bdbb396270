// Name digests, places of certificate files, texts of certificate names, and one certificate's file.
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_oneline.h"
#include "sgn/sgn_types.h"
#include "sgn/sgn_utl.h"
#include "sgn/support.h"
#include "support/faulty_provider.h"

// The linker sends the product's calls here.
static bool memory_is_out = false;
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  return memory_is_out ? nullptr : __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using SgnNames = Runtime;

// Frees it.
std::string taken(qchar* text) {
  const QmemPtr<qchar> owner(text);
  return text != nullptr ? qstr_to_utf8(text) : "(null)";
}

// The digests of "/CN=a" and 0x80 without a leading zero octet, worked out with sha1sum and sha256sum.
TEST_F(SgnNames, DigestsIssuerAndSerial) {
  const std::unique_ptr<ASN1_INTEGER, FreeWith<ASN1_INTEGER_free>> serial(ASN1_INTEGER_new());
  ASSERT_EQ(ASN1_INTEGER_set(serial.get(), 0x80), 1);
  const std::string digests[] = {"e3f8ad0006df92fe7350a255cf907a845e52aca3",
                                 "c5ee838d2bc73345a65c0337f339f5345e801d31168d834d36933721259f15a4"};
  qchar* sha1 = nullptr;
  qchar* sha256 = nullptr;
  for (const std::uint32_t which : {0U, 2U, 4U, 6U}) {
    ASSERT_EQ(sgn_get_qsha_issuer_serial("/CN=a", serial.get(), &sha1, &sha256, which), QERR_OK);
    EXPECT_EQ(taken(std::exchange(sha1, nullptr)), (which & SGN_QSHA_SHA1) != 0 ? digests[0] : "(null)") << which;
    EXPECT_EQ(taken(std::exchange(sha256, nullptr)), (which & SGN_QSHA_SHA256) != 0 ? digests[1] : "(null)") << which;
  }
  EXPECT_THAT(logged(QLOG_SGN,
                     [&] {
                       memory_is_out = true;
                       EXPECT_EQ(sgn_get_qsha_issuer_serial("", serial.get(), &sha1, &sha256, 6), QERR_LOW_MEMORY);
                       memory_is_out = false;
                     }),
              HasSubstr("Failed to get memory for SHA1 to qstr\n"));
  const int length = std::exchange(serial->length, -1);
  EXPECT_EQ(sgn_get_qsha_issuer_serial("", serial.get(), &sha1, &sha256, 6), QERR_INVALID);
  serial->length = length;
}

// Without a directory it depends on the service, which no test machine has.
TEST_F(SgnNames, PutsTogetherThePlaceOfAFile) {
  const std::string separator(1, static_cast<char>(qpath_native_separator()));
  const std::tuple<const qchar*, const qchar*, qerr_t, std::string> rows[] = {
      {u"", u"abc", QERR_OK, separator + "abc.cer"},
      {u"out", nullptr, QERR_OK, "out" + separator},
      {u"\\\\server\\share", u"abc", QERR_OK, "\\\\server\\share\\abc.cer"},
      {nullptr, u"abc", QERR_NOT_FOUND, "(null)"}};
  for (const auto& [directory, name, code, expected] : rows) {
    qchar* path = nullptr;
    EXPECT_EQ(sgn_get_internal_dir_alloc(&path, directory, name), code);
    EXPECT_EQ(taken(path), expected);
  }
  EXPECT_EQ(sgn_get_internal_dir_alloc(nullptr, u"out", u"abc"), QERR_ARG1);
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
  std::istringstream in(file_text(fixture_path("scripts/attribute_types.tsv")));
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
  const std::tuple<int, std::string, std::string> rows[] = {
      {V_ASN1_UTF8STRING, " a/b+c\\d=~"s, "/CN= a/b+c\\d=~"},
      {V_ASN1_UTF8STRING, "\x1f\x7f\xc3\xa5\0"s, "/CN=\\x1F\\x7F\\xC3\\xA5\\x00"},
      {V_ASN1_GENERALSTRING, "\0\0\0a\0\0\0\n"s, "/CN=a\\x0A"},
      {V_ASN1_GENERALSTRING, "\0\0\0a\0\0b\0"s, "/CN=\\x00\\x00\\x00a\\x00\\x00b\\x00"},
      {V_ASN1_GENERALSTRING, "\0\0\0ab"s, "/CN=\\x00\\x00\\x00ab"},
      {V_ASN1_BMPSTRING, "\0\0\0a"s, "/CN=\\x00\\x00\\x00a"},
      {V_ASN1_IA5STRING, std::string(most - 4, 'a'), "/CN=" + std::string(most - 4, 'a')},
      {V_ASN1_IA5STRING, std::string(most - 3, 'a'), "22"},
  };
  for (const auto& [kind, value, line] : rows) EXPECT_EQ(line_of("2.5.4.3", kind, value), line);
}

// A file that cannot be opened is the caller's business; one that cannot be filled is only logged. Neither leaves
// anything behind.
TEST_F(SgnNames, StoresACertificateOrNothing) {
  const fs::path folder = scratch_folder("one");
  SgnP7Owner p7;
  ASSERT_EQ(decode(file_text(fixture_path("pkcs7/signed_rsa.der")), p7), QERR_OK);
  X509* const leaf = p7->certificates.front()->x509.get();
  const auto store = [&] { return sgn_store_x509(leaf, folder.u16string().c_str(), nullptr, 5); };
  const std::pair<file_op, qerr_t> failures[] = {{file_op::create_exclusive, QERR_PERMISSION},
                                                 {file_op::rename, QERR_PERMISSION},
                                                 {file_op::write, QERR_NO_SPACE},
                                                 {file_op::write, QERR_IO},
                                                 {file_op::write, 27},
                                                 {file_op::write, 122}};  // too large, over the quota
  for (const auto& [op, code] : failures) {
    faulty_provider disk;
    disk.fail(op, 1, code, faulty_provider::ALWAYS);
    EXPECT_EQ(store(), op == file_op::write ? QERR_OK : code) << code;
    EXPECT_TRUE(fs::is_empty(folder));
  }
  EXPECT_EQ(store(), QERR_OK);
  expect_certificate_files(folder, {"6094c63c905babeb29376d7219b1387b45f401bb9a2adec98dac47c74f7e91da"});
  EXPECT_EQ(sgn_store_x509(nullptr, u"", nullptr, 5), QERR_ARG1);
}

}  // namespace
