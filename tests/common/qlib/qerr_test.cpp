#include "common/qlib/qerr.h"

#include <map>
#include <sstream>

#include "common/qlib/qpath.h"
#include "support/fixture_table.h"
#include "support/runtime.h"

namespace {

TEST(CodesWithoutRuntime, AreRefused) {
  EXPECT_EQ(qerr_from_win32(5), QERR_ALL_BITS);
  EXPECT_EQ(qerr_from_crt(5), QERR_ALL_BITS);
  EXPECT_TEXT(qerr_get_string(0), u"QERR_LIB_INIT_FAILURE");
}

using Codes = Runtime;

// A row holds the texts of ten codes that follow each other.
TEST_F(Codes, HaveTheirTexts) {
  for (const fixture_row& row : fixture_rows("common/qlib/code_texts.tsv")) {
    auto code = row.number("first");
    for (const std::string& text : fixture_cells(row.at("texts"), '|')) {
      EXPECT_EQ(qstr_to_utf8(qerr_get_string(code)), text) << code;
      ++code;
    }
  }
  for (const qerr_t code : {125U, 1000U, 1110U, QERR_ALL_BITS}) {
    EXPECT_TEXT(qerr_get_string(code), u"OS defined error code") << code;
  }
}

TEST_F(Codes, TranslateSystemErrors) {
  std::map<std::uint32_t, qerr_t> expected;
  for (const fixture_row& row : fixture_rows("common/qlib/windows_codes.tsv")) {
    std::istringstream values(row.at("windows"));
    std::istringstream codes(row.at("codes"));
    for (std::uint32_t value = 0, code = 0; values >> value && codes >> code;) expected[value] = code;
  }
  for (std::uint32_t value = 0; value < 12000; ++value) {
    const auto found = expected.find(value);
    EXPECT_EQ(qerr_from_win32(value), found == expected.end() ? value + 100000 : found->second) << value;
  }
  const std::pair<std::uint32_t, qerr_t> runtime[] = {{0, 0}, {14, 14}, {15, 100015}};
  for (const auto& [value, code] : runtime) EXPECT_EQ(qerr_from_crt(value), code) << value;
}

TEST_F(Codes, SystemTextStaysValidAndHasNoLineEnd) {
  const qchar* text = qerr_get_string(101450);
  ASSERT_NE(text, nullptr);
  const std::u16string first(text);
  // Windows knows the value; elsewhere the fixed text stands in.
  EXPECT_EQ(first == u"OS defined error code", qpath_native_separator() == u'/');
  EXPECT_EQ(first.find_first_of(u"\r\n"), std::u16string::npos);
  for (qerr_t code = 100000; code < 100200; ++code) EXPECT_NE(qerr_get_string(code), nullptr);
  EXPECT_EQ(first, text);
}

TEST(Startup, IsCounted) {
  for (int i = 0; i < 2; ++i) ASSERT_EQ(qlib_lib_init_basic(), 0U);
  qlib_lib_fini_basic();
  EXPECT_TRUE(qlib_lib_is_initialised());
  for (int i = 0; i < 2; ++i) qlib_lib_fini_basic();  // one too many changes nothing
  EXPECT_FALSE(qlib_lib_is_initialised());
}

}  // namespace
