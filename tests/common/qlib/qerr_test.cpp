#include "common/qlib/qerr.h"

#include <vector>

#include "common/qlib/qpath.h"
#include "support/runtime.h"

namespace {

TEST(CodesWithoutRuntime, AreRefused) {
  EXPECT_EQ(qerr_from_win32(5), QERR_ALL_BITS);
  EXPECT_EQ(qerr_from_crt(5), QERR_ALL_BITS);
  EXPECT_TEXT(qerr_get_string(0), u"QERR_LIB_INIT_FAILURE");
}

using Codes = Runtime;

TEST_F(Codes, Translate) {
  const std::pair<std::uint32_t, qerr_t> windows[] = {{0, 0},       {3, 2},        {5, 13},       {13, 1002},
                                                      {24, 1009},   {32, 1020},    {234, 1009},   {1056, 1085},
                                                      {1326, 1050}, {10102, 1008}, {183, 100183}, {0xFFFFFFFF, 99999}};
  for (const auto& [value, code] : windows) EXPECT_EQ(qerr_from_win32(value), code) << value;
  const std::pair<std::uint32_t, qerr_t> runtime[] = {{0, 0}, {14, 14}, {15, 100015}};
  for (const auto& [value, code] : runtime) EXPECT_EQ(qerr_from_crt(value), code) << value;
}

// All portable numbers but two have a text; what has none besides stands at gaps and ends of the extended range.
TEST_F(Codes, HaveTexts) {
  EXPECT_TEXT(qerr_get_string(12), u"Low memory condition");
  EXPECT_TEXT(qerr_get_string(124), u"Wrong medium type");
  EXPECT_TEXT(qerr_get_string(1002), u"Invalid 1st argument");
  EXPECT_TEXT(qerr_get_string(1099), u"Fips driver is not loaded");
  const std::vector<qerr_t> unnamed = {41, 58, 125, 1000, 1050, 1062, 1104, 1110, 99999, QERR_ALL_BITS};
  for (const qerr_t code : unnamed) EXPECT_TEXT(qerr_get_string(code), u"OS defined error code") << code;
  for (qerr_t code = 0; code <= 124; ++code) {
    const bool named = std::u16string(qerr_get_string(code)) != u"OS defined error code";
    EXPECT_EQ(named, code != 41 && code != 58) << code;
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
  ASSERT_EQ(qlib_lib_init_basic(), 0U);
  EXPECT_TRUE(qlib_lib_is_initialised());
  qlib_lib_fini_basic();
}

}  // namespace
