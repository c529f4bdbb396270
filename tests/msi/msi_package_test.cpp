// Packages of the fixtures, and larger ones that large_packages.py made, through the platform's own reader: the
// installer on Windows, ours elsewhere.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "common/qlib/qmem.h"
#include "msi/msi_database.h"
#include "msi/msi_package.h"
#include "msi/msi_signature.h"
#include "msi/package_facts.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

using answers = std::vector<std::string>;

using MsiPackage = ScratchTest;

const bool on_windows = qpath_native_separator() == u'\\';

// A text up to its first zero, as the tables show it: control characters by number, nothing as !0.
std::string shown(const qchar* text) {
  std::string out = *text == u'\0' ? "!0" : "";
  std::array<char, 8> number{};
  for (const char c : qstr_to_utf8(text)) {
    (void)std::snprintf(number.data(), number.size(), "\\u%04x", static_cast<unsigned>(c));
    out += c >= 0 && c < ' ' ? std::string(number.data()) : std::string(1, c);
  }
  return out;
}

std::string failure(msi_result result) { return "!" + std::to_string(result); }

std::string property(msi_handle database, const std::string& name) {
  const std::string query = "SELECT `Value` FROM `Property` WHERE `Property`='" + name + "'";
  msi_handle view = 0;
  msi_handle record = 0;
  std::array<qchar, MSI_MAX_TEXT + 1> text{};
  auto size = static_cast<std::uint32_t>(text.size());
  msi_result result = msi_database_open_view(database, qstr_to_wide(query).c_str(), &view);
  if (result == MSI_OK) result = msi_view_execute(view);
  if (result == MSI_OK) result = msi_view_fetch(view, &record);
  if (result == MSI_OK) result = msi_record_get_string(record, 1, text.data(), &size);
  EXPECT_EQ(msi_close_handle(record), MSI_OK);
  EXPECT_EQ(msi_close_handle(view), MSI_OK);
  return result == MSI_OK ? shown(text.data()) : failure(result);
}

// Length and FNV-1a of a signature; `-` for none.
std::string fingerprint(qerr_t code, std::byte* bytes, std::uint32_t length) {
  const QmemPtr<std::byte> owner(bytes);
  if (code != QERR_OK) return code == QERR_NOT_FOUND ? "-" : "!" + std::to_string(code);
  std::uint32_t sum = 0x811C9DC5;
  for (std::uint32_t i = 0; i < length; ++i) sum = (sum ^ std::to_integer<std::uint32_t>(bytes[i])) * 0x01000193;
  std::array<char, 24> text{};
  (void)std::snprintf(text.data(), text.size(), "%u:%08x", length, sum);
  return text.data();
}

// Result, the three values, the signature that `read` hands out.
template <class Read>
answers all_of(msi_result opened, msi_handle database, Read read) {
  answers all{std::to_string(opened)};
  for (const char* name : {"ProductName", "Manufacturer", "ProductVersion"}) {
    all.push_back(opened == MSI_OK ? property(database, name) : "");
  }
  EXPECT_EQ(msi_close_handle(database), MSI_OK);
  std::byte* bytes = nullptr;
  std::uint32_t length = 0;
  const qerr_t code = read(&bytes, &length);
  all.push_back(fingerprint(code, bytes, length));
  return all;
}

answers by_path(const std::u16string& path) {
  msi_handle database = 0;
  const msi_result opened = msi_open_database(path.c_str(), &database);
  return all_of(opened, database, [&](auto... out) { return msi_get_signature_alloc(path.c_str(), out...); });
}

// Windows reads the file at `path`, and only whether it is fit comes from `file`.
answers by_open_file(const std::u16string& path, qfile_t file) {
  std::shared_ptr<msi_package> package;
  (void)msi_package_open_file(path.c_str(), file, &package);
  msi_handle database = 0;
  const msi_result opened = msi_open_package_database(package, &database);
  return all_of(opened, database, [&](auto... out) { return msi_package_get_signature_alloc(package.get(), out...); });
}

answers expected_of(const fixture_row& row) {
  answers all;
  for (const char* column : {"open", "ProductName", "Manufacturer", "ProductVersion", "signature"}) {
    all.push_back(row.at(column));
  }
  return all;
}

// By path, and with one open file for both; then what is read is bounded, too. Where the installer has answers of its
// own, it still has to give some.
TEST_F(MsiPackage, AnswersAsTheTableHasIt) {
  for (auto& row : fixture_table("packages")) {
    const std::u16string path = fixture_wide(row["file"]);
    const bool own = on_windows && row["installer"] == "own";
    EXPECT_TRUE(by_path(path) == expected_of(row) || own) << row["file"];
    faulty_provider disk;
    QfileOwner file;
    ASSERT_EQ(qfile_open(file.out(), path.c_str(), QFILE_READ), QERR_OK) << row["file"];
    const answers found = by_open_file(path, file.get());
    EXPECT_EQ(found, own ? found : expected_of(row)) << row["file"];
    const std::string& most = row["reads"];
    EXPECT_LE(disk.calls(file_op::read), most.empty() ? 100 : std::stoul(most)) << row["file"];
  }
}

// Only where the table tells of them.
TEST_F(MsiPackage, TellsItsCodesAndLanguages) {
  for (auto& row : fixture_table("packages")) {
    if (row["facts"].empty()) continue;
    msi_handle database = 0;
    msi_package_facts facts;
    ASSERT_EQ(msi_open_database(fixture_wide(row["file"]).c_str(), &database), MSI_OK) << row["file"];
    EXPECT_EQ(msi_read_package_facts(database, &facts), QERR_OK);
    EXPECT_EQ(msi_close_handle(database), MSI_OK);
    std::string found;
    for (const msi_fact& fact : {facts.product_code, facts.upgrade_code, facts.product_language, facts.package_code,
                                 facts.architecture, facts.languages}) {
      found += (found.empty() ? "" : "|") + (fact.result == MSI_OK ? shown(fact.text.c_str()) : failure(fact.result));
    }
    EXPECT_EQ(found, row["facts"]) << row["file"];
  }
}

// A read that fails takes an answer away; none is made of what was not read.
TEST_F(MsiPackage, ReadThatFailsTakesAnAnswerAway) {
  const std::u16string path = fixture_wide("packages/product_rsa.msi");
  const answers expected = by_path(path);
  bool met = true;
  for (std::uint32_t nth = 1; met; ++nth) {
    faulty_provider disk;
    QfileOwner file;
    ASSERT_EQ(qfile_open(file.out(), path.c_str(), QFILE_READ), QERR_OK);
    disk.fail(file_op::read, nth, QERR_IO);
    const answers found = by_open_file(path, file.get());
    met = disk.calls(file_op::read) >= nth;
    EXPECT_EQ(found != expected, met) << nth;
    for (std::size_t i = 1; i < found.size(); ++i) {
      EXPECT_TRUE(found[i] == expected[i] || found[i].size() < 2 || found[i][0] == '!') << nth << found[i];
    }
  }
}

// Views and records keep what they need when what they came from is closed; a handle that is closed is none.
TEST_F(MsiPackage, KeepsTheInstallersRules) {
  msi_handle database = 0;
  msi_handle view = 0;
  msi_handle record = 0;
  ASSERT_EQ(msi_open_database(fixture_wide("packages/product.msi").c_str(), &database), MSI_OK);
  EXPECT_EQ(msi_database_open_view(database, u"SELECT `Value` FROM", &view), MSI_BAD_QUERY);
  EXPECT_EQ(msi_database_open_view(database + 1, u"SELECT", &view), MSI_INVALID_HANDLE);
  const char16_t* const query = u"SELECT `Value` FROM `Property` WHERE `Property`='ProductVersion'";
  ASSERT_EQ(msi_database_open_view(database, query, &view), MSI_OK);
  EXPECT_EQ(msi_close_handle(database), MSI_OK);
  ASSERT_EQ(msi_view_execute(view), MSI_OK);
  ASSERT_EQ(msi_view_fetch(view, &record), MSI_OK);
  EXPECT_EQ(msi_view_fetch(view, &database), MSI_NO_MORE_ITEMS);
  EXPECT_EQ(msi_close_handle(view), MSI_OK);
  for (const std::uint32_t capacity : {0U, 3U, 6U}) {
    std::array<qchar, 8> text{};
    std::uint32_t size = capacity;
    EXPECT_EQ(msi_record_get_string(record, 1, text.data(), &size), capacity == 6 ? MSI_OK : MSI_MORE_DATA);
    EXPECT_EQ(size, 5U) << capacity;
    EXPECT_TRUE(std::u16string(text.data()).starts_with(capacity == 0 ? u"" : u"1.")) << capacity;
  }
  EXPECT_EQ(msi_close_handle(record), MSI_OK);
  EXPECT_EQ(msi_close_handle(record), MSI_INVALID_HANDLE);
  EXPECT_EQ(msi_view_execute(view), MSI_INVALID_HANDLE);
}

TEST_F(MsiPackage, OpensNothingElse) {
  for (const char* file : {"images/exe64.exe", "no such file", ""}) {
    EXPECT_EQ(by_path(fixture_wide(file)), (answers{"110", "", "", "", "-"})) << file;
  }
}

// The system's reader takes short paths only; and no copy that served one stays.
TEST_F(MsiPackage, MayLieAtALongPath) {
  const answers expected = by_path(fixture_wide("packages/product_rsa.msi"));
  const std::string bytes = file_text(fixture_path("packages/product_rsa.msi"));
  for (const std::size_t length : {259U, 260U, 275U, 400U}) {
    std::u16string name;
    while (root().size() + name.size() + 107 < length) name += std::u16string(100, u'f') + u"/";
    name += std::u16string(length - root().size() - name.size() - 5, u'p') + u".msi";
    const std::u16string path = put(name, bytes);
    EXPECT_EQ(path.size(), length);
    EXPECT_EQ(by_path(path), expected) << length;
  }
}

// Windows drops a period or blank at a component's end from a plain path, and would open another file. What a package
// needs in its place is made once for properties and signature.
TEST_F(MsiPackage, IsReadUnderItsOwnName) {
  const answers expected = by_path(fixture_wide("packages/product_rsa.msi"));
  put(u"d/p.msi", file_text(fixture_path("packages/product_ec.msi")));
  for (const char16_t* name : {u"d./p.msi", u"d /p.msi", u"d/p.msi.", u"d/p.msi ", u"d/nul.msi"}) {
    const std::u16string path = put(name, file_text(fixture_path("packages/product_rsa.msi")));
    faulty_provider disk;
    QfileOwner file;
    ASSERT_EQ(qfile_open(file.out(), path.c_str(), QFILE_READ), QERR_OK);
    EXPECT_EQ(by_open_file(path, file.get()), expected) << qstr_to_utf8(name);
    EXPECT_LE(disk.calls(file_op::remove), 1U) << qstr_to_utf8(name);
  }
}

}  // namespace
