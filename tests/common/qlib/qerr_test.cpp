#include "common/qlib/qerr.h"

#include "common/qlib/qpath.h"
#include "support/runtime.h"

namespace {

TEST(CodesWithoutRuntime, AreRefused) {
  EXPECT_EQ(qerr_from_win32(5), QERR_ALL_BITS);
  EXPECT_EQ(qerr_from_crt(5), QERR_ALL_BITS);
  EXPECT_TEXT(qerr_get_string(0), u"QERR_LIB_INIT_FAILURE");
}

class Codes : public Runtime {};

TEST_F(Codes, TranslateWindowsErrors) {
  const struct {
    std::uint32_t value;
    qerr_t code;
  } rows[] = {
      {0, 0},       {1, 38},     {2, 2},        {3, 2},        {5, 13},        {13, 1002},      {18, 2},
      {24, 1009},   {32, 1020},  {87, 1001},    {86, 1050},    {234, 1009},    {259, 1008},     {1056, 1085},
      {1326, 1050}, {10035, 11}, {10102, 1008}, {183, 100183}, {1450, 101450}, {10067, 110067}, {0xFFFFFFFF, 99999}};
  for (const auto& row : rows) EXPECT_EQ(qerr_from_win32(row.value), row.code) << row.value;
}

TEST_F(Codes, TranslateRuntimeErrors) {
  const struct {
    std::uint32_t value;
    qerr_t code;
  } rows[] = {{0, 0}, {2, 2}, {14, 14}, {15, 100015}, {22, 100022}};
  for (const auto& row : rows) EXPECT_EQ(qerr_from_crt(row.value), row.code) << row.value;
}

TEST_F(Codes, HaveTexts) {
  const struct {
    qerr_t code;
    const qchar* text;
  } rows[] = {{0, u"Success"},
              {12, u"Low memory condition"},
              {81, u".lib section in a.out corrupted"},
              {124, u"Wrong medium type"},
              {1002, u"Invalid 1st argument"},
              {1008, u"No more values/keys left to iterate"},
              {1099, u"Fips driver is not loaded"},
              // No row: the two unused portable numbers, gaps of the extended range, both ends of it.
              {125, u"OS defined error code"},
              {1000, u"OS defined error code"},
              {1050, u"OS defined error code"},
              {1062, u"OS defined error code"},
              {1104, u"OS defined error code"},
              {1110, u"OS defined error code"},
              {99999, u"OS defined error code"},
              {QERR_ALL_BITS, u"OS defined error code"}};
  for (const auto& row : rows) EXPECT_TEXT(qerr_get_string(row.code), row.text) << row.code;
}

TEST_F(Codes, EveryPortableNumberButTwoHasItsOwnText) {
  for (qerr_t code = 0; code <= 124; ++code) {
    const bool unused = code == 41 || code == 58;
    EXPECT_EQ(std::u16string(qerr_get_string(code)) == u"OS defined error code", unused) << code;
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
  EXPECT_TEXT(qerr_get_string(101450), first.c_str());
}

TEST(Startup, IsCounted) {
  EXPECT_FALSE(qlib_lib_is_initialised());
  ASSERT_EQ(qlib_lib_init_basic(), 0U);
  ASSERT_EQ(qlib_lib_init_basic(), 0U);
  qlib_lib_fini_basic();
  EXPECT_TRUE(qlib_lib_is_initialised());
  EXPECT_TEXT(qerr_get_string(0), u"Success");
  qlib_lib_fini_basic();
  EXPECT_FALSE(qlib_lib_is_initialised());
  qlib_lib_fini_basic();  // one too many changes nothing
  ASSERT_EQ(qlib_lib_init_basic(), 0U);
  EXPECT_TRUE(qlib_lib_is_initialised());
  qlib_lib_fini_basic();
}

}  // namespace
