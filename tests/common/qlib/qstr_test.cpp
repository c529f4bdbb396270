#include "common/qlib/qstr.h"

#include <vector>

#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"
#include "support/runtime.h"

namespace {

TEST(Memory, RefusesWhatDoesNotFit) {
  EXPECT_EQ(qmem_calloc(SIZE_MAX / 2, 3), nullptr);
  const QmemPtr<unsigned char> zeros(static_cast<unsigned char*>(qmem_calloc(3, 5)));
  ASSERT_NE(zeros, nullptr);
  EXPECT_EQ(std::string(zeros.get(), zeros.get() + 15), std::string(15, '\0'));
  EXPECT_NE(QmemPtr<void>(qmem_alloc(0)), nullptr);
  std::string secret = "secret";
  qmem_wipe(secret.data(), secret.size());
  EXPECT_EQ(secret, std::string(6, '\0'));
}

TEST(Strings, WidenWhatFitsAndIsAscii) {
  qchar buffer[4];
  EXPECT_EQ(qstr_from_ascii(buffer, 8, "abc"), buffer);
  EXPECT_TEXT(buffer, u"abc");
  EXPECT_EQ(qstr_from_ascii(buffer, 7, "abc"), nullptr);
  EXPECT_EQ(qstr_from_ascii(buffer, 8, "\x80"), nullptr);
}

// UTF-8 and its wide form; the way back gives the same where nothing was replaced.
TEST(Strings, ConvertWithReplacementCharacters) {
  const struct {
    const char* utf8;
    const qchar* wide;
  } rows[] = {
      {"", u""},
      {"a\xC3\xA9\xE2\x82\xAC", u"a\u00E9\u20AC"},
      {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", u"\U0001F600\U0010FFFF"},
      {"\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD", u"\uD7FF\uE000\uFFFD"},
      {"x\x80y\xFFz", u"x\uFFFDy\uFFFDz"},
      {"\xC0\xAF", u"\uFFFD\uFFFD"},                      // overlong slash
      {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},            // overlong, three bytes
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // an encoded surrogate
      {"\xE2\x82", u"\uFFFD"},                            // cut off at the end
      {"\xF0\x9F\x98z", u"\uFFFDz"},                      // cut off before a letter
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
  };
  for (const auto& row : rows) {
    const std::u16string wide = qstr_to_wide(row.utf8);
    EXPECT_TRUE(wide == row.wide) << row.utf8;
    const std::string again = qstr_to_utf8(wide);
    EXPECT_TRUE(again == row.utf8 || (wide.find(0xFFFD) != wide.npos && qstr_to_wide(again) == wide)) << row.utf8;
    std::vector<qchar> exact(wide.size() + 1);
    ASSERT_EQ(qstr_utoq(exact.data(), exact.size() * 2, row.utf8), exact.data());
    EXPECT_TEXT(exact.data(), row.wide);
    std::vector<char> narrow(again.size() + 1);
    ASSERT_EQ(qstr_qtou(narrow.data(), narrow.size(), row.wide), narrow.data());
    EXPECT_EQ(narrow.data(), again);
  }
  EXPECT_EQ(qstr_to_utf8(u"\xD800z\xDC00\xDBFF"), "\xEF\xBF\xBDz\xEF\xBF\xBD\xEF\xBF\xBD");
}

using StringsPrinted = Runtime;

TEST_F(StringsPrinted, ConversionsThatDoNotFitSaySo) {
  qchar wide[3] = {u'#', u'#', u'#'};
  char narrow[3] = {'#', '#', '#'};
  EXPECT_EQ(printed([&] {
              EXPECT_EQ(qstr_utoq(wide, 5, "ab"), nullptr);
              EXPECT_EQ(qstr_qtou(narrow, 2, u"ab"), nullptr);
            }),
            "qstr_utoq(): MultiByteToWideChar() returned 122\nqstr_qtou(): WideCharToMultiByte() returned 122\n");
  EXPECT_EQ(wide[0], u'#');
  EXPECT_EQ(narrow[0], '#');
}

TEST_F(StringsPrinted, ConsoleTextHasItsUnitsCounted) {
  int units = 0;
  EXPECT_EQ(printed([&] { units = qstr_console_printf(u"a%d\n\nb%s\n", 1, std::u16string(40000, u'x')); }),
            "a1\n\nb" + std::string(40000, 'x') + "\n");
  EXPECT_EQ(units, 40006);
}

// Any byte string must come back as it was, or a file could be listed but not opened.
TEST(FileNames, SurviveTheWayThereAndBack) {
  const struct {
    std::string bytes;
    std::u16string name;
  } rows[] = {{"\xC3\xA9\xF0\x9F\x98\x80", u"\u00E9\U0001F600"},
              {"\xED\xB2\x80", u"\xDCED\xDCB2\xDC80"},
              {"\xE2\x82/x", u"\xDCE2\xDC82/x"},
              {"\xF0\x9F\x98\x80\x80", u"\U0001F600\xDC80"}};
  for (const auto& row : rows) {
    EXPECT_TRUE(qstr_name_from_bytes(row.bytes) == row.name) << row.bytes;
    std::string back;
    EXPECT_TRUE(qstr_name_to_bytes(row.name, back));
    EXPECT_EQ(back, row.bytes);
  }
  // All strings of three bytes out of those that begin, continue, end or break a sequence.
  const std::string bytes("\x00\x41\x7F\x80\x8F\x90\x9F\xA0\xB2\xBF\xC0\xC2\xDF\xE0\xED\xEF\xF0\xF4\xF5\xFF", 20);
  for (std::size_t i = 0; i < 20 * 20 * 20; ++i) {
    const std::string name{bytes[i / 400], bytes[i / 20 % 20], bytes[i % 20]};
    std::string back;
    ASSERT_TRUE(qstr_name_to_bytes(qstr_name_from_bytes(name), back));
    ASSERT_EQ(back, name);
  }
  for (const std::u16string name : {u"a\xD800", u"\xDC7F", u"\xDD00", u"\xD83Dx"}) {
    std::string back;
    EXPECT_FALSE(qstr_name_to_bytes(name, back)) << "other surrogates name no file";
  }
}

TEST(Paths, AreCutAtTheirOwnSeparator) {
  const bool windows = qpath_native_separator() == u'\\';
  EXPECT_EQ(qpath_is_bare_drive(u"C:"), windows);
  EXPECT_EQ(qpath_is_bare_drive(u"/"), !windows);
  for (const qchar* path : {u"", u"C", u"C:\\", u"//", u"ab"}) EXPECT_FALSE(qpath_is_bare_drive(path));
  EXPECT_TRUE(qpath_join(u"\\\\s\\x", u"n") == u"\\\\s\\x\\n");
  EXPECT_TRUE(qpath_join(u"d", u"n") == (windows ? u"d\\n" : u"d/n"));
}

TEST(Paths, PartsOfAPathToAShare) {
  const struct {
    std::u16string_view path, root, server, share;  // no root: no path to a share
  } rows[] = {{u"\\\\s\\x", u"\\\\s\\x", u"s", u"x"},
              {u"\\\\s\\x\\a\\b", u"\\\\s\\x", u"s", u"x"},
              {u"\\\\?\\uNC\\s\\x\\a", u"\\\\?\\uNC\\s\\x", u"s", u"x"},
              {u"\\\\?\\UNCLE\\a", u"\\\\?\\UNCLE", u"?", u"UNCLE"},
              {u"\\\\?\\C:\\a", u"\\\\?\\C:", u"?", u"C:"},
              {u"\\\\?\\UNC\\s", {}, {}, {}},
              {u"\\\\s\\", {}, {}, {}},
              {u"\\\\\\x", {}, {}, {}},
              {u"\\\\s\\\\a", {}, {}, {}},
              {u"\\s\\x", {}, {}, {}},
              {u"//s/x", {}, {}, {}}};
  for (const auto& row : rows) {
    qpath_share parts;
    EXPECT_EQ(qpath_parse_share(row.path, parts), !row.root.empty()) << qstr_to_utf8(row.path);
    EXPECT_TRUE(parts.root == row.root && parts.server == row.server && parts.share == row.share);
    EXPECT_TRUE(parts.rest == (row.root.empty() ? row.root : row.path.substr(row.root.size())));
  }
}

TEST(Paths, CaseFoldsInAsciiOnly) {
  EXPECT_TRUE(qstr_equal_nocase(u"SETUP.Exe", u"setup.eXE"));
  EXPECT_FALSE(qstr_equal_nocase(u"\u00C9", u"\u00E9"));
  EXPECT_FALSE(qstr_equal_nocase(u"@[", u"`{"));
  EXPECT_FALSE(qstr_equal_nocase(u"a", u"ab"));
  qchar text[] = u"AZ@[\u00C9\u0130k";
  qstr_lower_ascii(text);
  EXPECT_TEXT(text, u"az@[\u00C9\u0130k");
}

}  // namespace
