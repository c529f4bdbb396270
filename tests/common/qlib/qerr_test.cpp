#include "common/qlib/qerr.h"

#include "common/qlib/qerr_table.h"
#include "common/qlib/qpath.h"
#include "support/runtime.h"

namespace {

TEST(CodesWithoutRuntime, AreRefused) {
  EXPECT_EQ(qerr_from_win32(5), QERR_ALL_BITS);
  EXPECT_EQ(qerr_from_crt(5), QERR_ALL_BITS);
  EXPECT_TEXT(qerr_get_string(0), u"QERR_LIB_INIT_FAILURE");
}

using Codes = Runtime;

// What has no row of its own keeps its value, or has no text.
TEST_F(Codes, TranslateAndHaveTexts) {
  const std::pair<std::uint32_t, qerr_t> windows[] = {{3, 2}, {1326, 1050}, {10102, 1008}, {183, 100183}};
  for (const auto& [value, code] : windows) EXPECT_EQ(qerr_from_win32(value), code) << value;
  const std::pair<std::uint32_t, qerr_t> runtime[] = {{14, 14}, {15, 100015}};
  for (const auto& [value, code] : runtime) EXPECT_EQ(qerr_from_crt(value), code) << value;
  for (const qerr_translation& row : qerr_win32_table) EXPECT_EQ(qerr_from_win32(row.value), row.code) << row.value;
  for (const qerr_message& row : qerr_messages) EXPECT_TEXT(qerr_get_string(row.code), row.text) << row.code;
  EXPECT_TEXT(qerr_get_string(124), u"Wrong medium type");
  EXPECT_TEXT(qerr_get_string(1099), u"Fips driver is not loaded");
  for (const qerr_t code : {41U, 125U, 1104U, QERR_ALL_BITS}) {
    EXPECT_TEXT(qerr_get_string(code), u"OS defined error code") << code;
  }
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
