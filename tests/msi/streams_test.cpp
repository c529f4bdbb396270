// The streams of a package, read from memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "msi/package_facts.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"
#include "support/fixture_table.h"
#include "support/image_builder.h"
#include "support/memory_file.h"
#include "support/runtime.h"

namespace {

// The text that `row` asks for; its pool is a header with the code page and the words of `entries`.
std::u16string text_of(const fixture_row& row, const std::string& data) {
  const std::uint32_t code_page = row.number("code_page");
  byte_builder words;
  words.u32(0, code_page);
  std::istringstream entries(row.at("entries"));
  for (unsigned word = 0; entries >> word;) words.u16(words.bytes().size(), word);
  memory_file pool(words.bytes());
  memory_file bytes{std::string_view(data)};
  const auto strings = string_pool::open(msi_borrow_file(&pool), msi_borrow_file(&bytes), {});
  std::u16string text;
  return strings && property_text(*strings, row.number("number"), text) ? text : u"(unreadable)";
}

// What the fixtures do not have: all forms of entries, and the code pages of Windows.
TEST(StringPool, ReadsEveryEntryAndCodePage) {
  for (const auto& row : fixture_rows("msi/string_pool.tsv")) {
    std::string data = row.octets("data");
    if (const auto at = data.find('*'); at != std::string::npos) data.replace(at, 1, row.number("xs"), 'x');
    std::u16string expected = row.wide("expected");
    if (expected == u"*") expected.assign(4000, u'x');
    EXPECT_EQ(text_of(row, data), expected) << row.at("what");
  }
}

// What comes out of a stream, behind the code.
std::string message_of(const std::string& content) {
  memory_file stream{std::string_view(content)};
  QmemPtr<std::byte> bytes;
  std::uint32_t length = 0;
  const qerr_t code = signature_message_read(*msi_borrow_file(&stream), bytes, length);
  return std::to_string(code) + " " + std::string(reinterpret_cast<const char*>(bytes.get()), length);
}

TEST(SignatureStream, HandsOutOneMessage) {
  for (const auto& row : fixture_rows("msi/signature_stream.tsv")) {
    const std::string stream = row.octets("stream");
    const std::string message = stream.substr(0, row.number("length"));
    EXPECT_EQ(message_of(stream), row.at("code") + " " + message) << row.at("stream");
  }
}

using CodePages = Runtime;

TEST_F(CodePages, UnknownOneIsNamedInOneWarning) {
  for (const char* file : {"packages/codepage_unknown.msi", "packages/codepage_932.msi"}) {
    const std::string log = logged(QLOG_PROG, [&] {
      msi_handle database = 0;
      msi_package_facts facts;
      EXPECT_EQ(msi_open_database(fixture_wide(file).c_str(), &database), MSI_OK);
      EXPECT_EQ(msi_read_package_facts(database, &facts), QERR_OK);
      EXPECT_EQ(msi_close_handle(database), MSI_OK);
    });
    const bool unknown = log.find("Code page 12345 of ") != log.npos;
    EXPECT_EQ(unknown, std::string_view(file).ends_with("unknown.msi")) << log;
    EXPECT_EQ(std::ranges::count(log, '\n'), unknown ? 1 : 0) << log;
  }
}

}  // namespace
