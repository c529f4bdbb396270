#include "common/qlib/qfmt.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/qlib/qstr.h"
#include "support/fixture_table.h"

namespace {

template <class... Args>
std::string formatted(const qchar* format, const Args&... args) {
  const std::array<qfmt_arg, sizeof...(Args) + 1> list{qfmt_arg(args)..., qfmt_arg(0)};
  std::u16string text;
  EXPECT_TRUE(qfmt_to_string(text, format, std::span(list).first(sizeof...(Args))));
  return qstr_to_utf8(text);
}

TEST(Formatting, TheConversionDecidesHowAnIntegerPrints) {
  for (const fixture_row& row : fixture_rows("common/qlib/formats.tsv")) {
    EXPECT_EQ(formatted(row.wide("format").c_str(), row.number<std::int64_t>("value")), row.at("text"));
  }
  EXPECT_EQ(formatted(u"%d|%i|%u|%hd|%zu|%lu", 0xFFFFFFFFU, -1, -1, 0x1FFFF, std::size_t{7}, -1LL),
            "-1|-1|4294967295|-1|7|4294967295");
  EXPECT_EQ(formatted(u"[%*d][%-*d][%*d][%.*s]", 4, 1, 4, 2, -4, 3, 2, u"abc"), "[   1][2   ][3   ][ab]");
  EXPECT_EQ(formatted(u"%p", reinterpret_cast<const void*>(0xABCD)), "000000000000ABCD");
}

TEST(Formatting, TextsPrintByTheirOwnKind) {
  const std::u16string wide = u"w\u00E9";
  const std::string narrow = "n\xC3\xA9";
  EXPECT_EQ(formatted(u"%s %ls %hs %S", wide, wide.c_str(), narrow, narrow.c_str()),
            "w\xC3\xA9 w\xC3\xA9 n\xC3\xA9 n\xC3\xA9");
  EXPECT_EQ(formatted(u"[%6s][%-6s][%.2s][%4c]", u"abc", u"abc", u"abc", u'x'), "[   abc][abc   ][ab][   x]");
  EXPECT_EQ(formatted(u"[%-6hs][%6hs]", "\xF0\x9F\x98\x80", "\xFF"), "[\xF0\x9F\x98\x80    ][     \xEF\xBF\xBD]");
  EXPECT_EQ(formatted(u"%hs [%.3s]", static_cast<const char*>(nullptr), static_cast<const qchar*>(nullptr)),
            "(null) [(nu]");
  // With a precision a text need not be terminated.
  const qchar open_wide[3] = {u'a', u'b', u'c'};
  const char open_narrow[3] = {'d', 'e', 'f'};
  EXPECT_EQ(formatted(u"%.3s%.*hs", static_cast<const qchar*>(open_wide), 3, static_cast<const char*>(open_narrow)),
            "abcdef");
}

// Each text beside what a person may see of it; "!" stands for U+FFFD.
TEST(Formatting, PrintableValuesForgeNothing) {
  const std::pair<std::u16string, std::u16string> rows[] = {
      {u"\x1B[2J\n\x7F\x9F\u2028", u"![2J!!!!"},
      {u"\u061C\u200E\u200F\u202A\u202E\u2066\u2069", u"!!!!!!!"},
      {u"\u200A\u2010\u2029\u202F\u2065\u206A\u00A0~", u"\u200A\u2010!\u202F\u2065\u206A\u00A0~"},
      {u"\xDCFFz\xD83D\xDE00\xD800", u"!z\xD83D\xDE00!"}};
  for (auto [text, shown] : rows) {
    std::replace(shown.begin(), shown.end(), u'!', u'\uFFFD');
    std::u16string got;
    const qfmt_arg argument(text);
    EXPECT_TRUE(qfmt_to_string(got, u"%s", std::span(&argument, 1), qfmt_values::printable));
    EXPECT_TRUE(got == shown) << qstr_to_utf8(got);
  }
}

TEST(Formatting, WrongFormatsAreHarmless) {
  EXPECT_EQ(formatted(u"%s %s %s|%d", 7, 0), "7 (null) (null)|0");
  EXPECT_EQ(formatted(u"100%% %y %", 1), "100% %y %");
  EXPECT_EQ(formatted(u"%999999999999d", 1).size(), 32767U);
  EXPECT_EQ(formatted(u"%*d", INT32_MIN, 1).size(), 32767U);
}

// The capacity, in bytes, and what is in the buffer of six units then; the rest of it stays.
TEST(Formatting, CapacityIsInBytesAndTheTextEndsInside) {
  const struct {
    std::size_t capacity;
    const qchar* text;
    int result;
    std::u16string buffer;
  } rows[] = {{10, u"abcd", 4, {u"abcd\0#", 6}},   {10, u"abcdefgh", -1, {u"abcd\0#", 6}},
              {11, u"12345", -1, {u"1234\0#", 6}}, {2, u"x", -1, {u"\0#####", 6}},
              {2, u"", 0, {u"\0#####", 6}},        {1, u"x", -1, u"######"}};
  for (const auto& row : rows) {
    std::u16string buffer(6, u'#');
    EXPECT_EQ(qstr_printf(buffer.data(), row.capacity, u"%s", row.text), row.result);
    EXPECT_TRUE(buffer == row.buffer) << row.capacity;
  }
  EXPECT_EQ(qstr_printf(nullptr, 100, u"x"), -1);
}

}  // namespace
