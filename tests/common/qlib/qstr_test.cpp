#include "common/qlib/qstr.h"

#include <vector>

#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"
#include "support/fixture_table.h"
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

// Bytes, each as one unit of the table, and what stands for them in texts and in names of files. Names, and texts in
// which nothing was replaced, lead back to the same bytes, or a file could be listed but not opened.
TEST(Strings, ConvertBetweenBytesAndUnits) {
  for (const fixture_row& row : fixture_rows("common/qlib/utf8.tsv")) {
    SCOPED_TRACE(row.at("what"));
    const std::u16string units = row.wide("bytes");
    const std::string bytes(units.begin(), units.end());
    const std::u16string text = qstr_to_wide(bytes);
    EXPECT_EQ(text, row.wide("text"));
    const std::string again = qstr_to_utf8(text);
    EXPECT_TRUE(again == bytes || (text.find(0xFFFD) != text.npos && qstr_to_wide(again) == text));
    std::vector<qchar> exact(text.size() + 1);
    ASSERT_EQ(qstr_utoq(exact.data(), exact.size() * 2, bytes.c_str()), exact.data());
    EXPECT_EQ(exact.data(), text);
    std::vector<char> narrow(again.size() + 1);
    ASSERT_EQ(qstr_qtou(narrow.data(), narrow.size(), text.c_str()), narrow.data());
    EXPECT_EQ(narrow.data(), again);
    std::string back;
    EXPECT_EQ(qstr_name_from_bytes(bytes), row.wide("name"));
    EXPECT_TRUE(qstr_name_to_bytes(row.wide("name"), back));
    EXPECT_EQ(back, bytes);
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

TEST(FileNames, SurviveTheWayThereAndBack) {
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

// Without a root in the table it is no path to a share.
TEST(Paths, PartsOfAPathToAShare) {
  for (const fixture_row& row : fixture_rows("common/qlib/share_paths.tsv")) {
    const std::u16string path = row.wide("path");
    const std::u16string root = row.wide("root");
    qpath_share parts;
    EXPECT_EQ(qpath_parse_share(path, parts), !root.empty()) << row.at("path");
    EXPECT_TEXT(parts.root, root);
    EXPECT_TEXT(parts.server, row.wide("server"));
    EXPECT_TEXT(parts.share, row.wide("share"));
    EXPECT_TEXT(parts.rest, path.substr(root.empty() ? path.size() : root.size()));
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
