// Packages of the fixtures through the platform's own reader: the installer on Windows, ours elsewhere.
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "msi/msi_signature.h"
#include "support/fixture_table.h"
#include "support/runtime.h"
#include "utils/signing/brantle/msiExtractProductInfo.h"

namespace {

const bool on_windows = qpath_native_separator() == u'\\';

std::u16string path_of(const std::string& file) { return qstr_to_wide(fixture_path(file)); }

// The value behind one field of the table: \uXXXX escapes, or long:N.
std::u16string unescaped(const std::string& field) {
  if (field.starts_with("long:")) {
    const std::size_t length = std::stoul(field.substr(5));
    std::u16string text;
    while (text.size() < length) text += u"long text "[text.size() % 10];
    return text;
  }
  return fixture_text(field);
}

using Package = Runtime;

void check_property(MsiProductInfoExtractor& extractor, const std::string& file, const char* name,
                    const std::string& expected) {
  std::u16string value;
  const msi_result result = extractor.getPropertyValueFromMsi(qstr_to_wide(name), value);
  if (expected == "?") return;
  if (expected == "!259") {
    EXPECT_EQ(result, MSI_NO_MORE_ITEMS) << file << ' ' << name;
    return;
  }
  EXPECT_EQ(result, MSI_OK) << file << ' ' << name;
  EXPECT_EQ(value, expected == "!0" ? u"" : unescaped(expected)) << file << ' ' << name;
}

TEST_F(Package, HasTheExpectedProperties) {
  int opened = 0;
  for (auto& row : fixture_table("packages")) {
    const std::string& file = row["file"];
    try {
      MsiProductInfoExtractor extractor(path_of(file));
      EXPECT_NE(row["open"], "110") << file;
      for (const char* name : {"ProductName", "Manufacturer", "ProductVersion"}) {
        check_property(extractor, file, name, row[name]);
      }
      ++opened;
    } catch (const std::uint32_t code) {
      EXPECT_NE(row["open"], "0") << file;
      EXPECT_TRUE(on_windows || code == MSI_OPEN_FAILED) << file << ' ' << code;
    }
  }
  EXPECT_GT(opened, 30);
}

// signatures/ holds what osslsigncode extracts (make_signatures.sh); a package without a file there has no signature.
TEST_F(Package, HasTheExpectedSignature) {
  int signed_packages = 0;
  for (const char* name :
       {"product", "plain", "product_rsa", "product_ec", "product_rsa_extended", "sectors_4096",
        "signature_mini_stream", "signature_ordinary_stream", "signature_empty", "signature_garbage"}) {
    const std::string expected = file_text(std::string("msi/signatures/") + name + ".p7");
    std::byte* bytes = nullptr;
    std::uint32_t length = 0;
    const qerr_t code =
        msi_get_signature_alloc(path_of(std::string("packages/") + name + ".msi").c_str(), &bytes, &length);
    const QmemPtr<std::byte> owner(bytes);
    EXPECT_EQ(code, expected.empty() ? QERR_NOT_FOUND : QERR_OK) << name;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes), length), expected) << name;
    if (!expected.empty()) ++signed_packages;
  }
  EXPECT_EQ(signed_packages, 6);
}

TEST_F(Package, IsNeededForASignature) {
  std::byte* bytes = nullptr;
  std::uint32_t length = 0;
  for (const char* file : {"tree/readme.txt", "images/exe64.exe", "packages/damaged/text.msi", "no such file", ""}) {
    EXPECT_EQ(msi_get_signature_alloc(path_of(file).c_str(), &bytes, &length), QERR_NOT_FOUND) << file;
  }
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(msi_get_signature_alloc(nullptr, &bytes, &length), QERR_ARG1);
  EXPECT_EQ(msi_get_signature_alloc(u"x", nullptr, &length), QERR_ARG2);
  EXPECT_EQ(msi_get_signature_alloc(u"x", &bytes, nullptr), QERR_ARG3);
}

TEST_F(Package, AnswersTheInstallersNumbers) {
  msi_handle database = 0;
  EXPECT_NE(msi_open_database(path_of("no such file.msi").c_str(), &database), MSI_OK);
  ASSERT_EQ(msi_open_database(path_of("packages/product.msi").c_str(), &database), MSI_OK);
  msi_handle view = 0;
  EXPECT_EQ(msi_database_open_view(database, u"SELECT `Value` FROM", &view), MSI_BAD_QUERY);
  EXPECT_EQ(msi_database_open_view(database + 1, u"SELECT", &view), MSI_INVALID_HANDLE);
  ASSERT_EQ(
      msi_database_open_view(database, u"SELECT `Value` FROM `Property` WHERE `Property`='ProductVersion'", &view),
      MSI_OK);
  EXPECT_EQ(msi_close_handle(database), MSI_OK);
  ASSERT_EQ(msi_view_execute(view), MSI_OK);
  msi_handle record = 0;
  ASSERT_EQ(msi_view_fetch(view, &record), MSI_OK);
  msi_handle second = 0;
  EXPECT_EQ(msi_view_fetch(view, &second), MSI_NO_MORE_ITEMS);
  EXPECT_EQ(msi_close_handle(view), MSI_OK);

  qchar text[8] = {};
  std::uint32_t size = 3;
  EXPECT_EQ(msi_record_get_string(record, 1, text, &size), MSI_MORE_DATA);
  EXPECT_EQ(size, 5U);
  size = 6;
  EXPECT_EQ(msi_record_get_string(record, 1, text, &size), MSI_OK);
  EXPECT_EQ(std::u16string(text), u"1.2.3");
  EXPECT_EQ(msi_close_handle(record), MSI_OK);
  EXPECT_EQ(msi_close_handle(record), MSI_INVALID_HANDLE);
  EXPECT_EQ(msi_view_execute(view), MSI_INVALID_HANDLE);
}

}  // namespace
