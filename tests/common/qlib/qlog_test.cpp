#include "common/qlib/qlog.h"

#include <regex>

#include "common/qlib/qerr.h"
#include "support/fixture_table.h"
#include "support/runtime.h"

namespace {

constexpr std::uint32_t module_id = QLOG_PROG;

TEST(LoggingWithoutRuntime, WritesAndFindsNothing) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_PROG, "f", "f.cpp", 1, u"x"), QERR_CORRUPTED);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(qlog_is_enabled(QLOG_ERROR, 200), 0U);
  EXPECT_EQ(qlog_module_index(u"SGN"), -1);
}

class Logging : public Runtime {
 protected:
  // The line that one call writes, with the columns of `format`.
  template <class... Args>
  static std::string line(std::uint32_t format, const char* function, const char* file, const qchar* text,
                          const Args&... args) {
    (void)qlog_set_format(format);
    return printed([&] { EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_SGN, function, file, 60, text, args...), 0U); });
  }
};

TEST_F(Logging, LineHasTheDefaultColumns) {
  const std::string text =
      printed([] { (void)qlog_write(QLOG_ERROR, QLOG_PROG, "f", "a/b/brantle.cpp", 60, u"code %d", 5); });
  const std::regex expected(
      R"(U\.\d{4,}\.\d{4,}: (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) \d\d \d{4}:\d\d:\d\d:\d\d\.\d{3}: )"
      R"(  ERROR: brantle\.cpp :   60: code 5\n)");
  EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

// Of the function the qualified name, out of what compilers write.
TEST_F(Logging, EachColumnHasItsForm) {
  for (const fixture_row& row : fixture_rows("common/qlib/log_columns.tsv")) {
    EXPECT_EQ(line(row.number("columns"), row.at("function").c_str(), row.at("file").c_str(), u"m"),
              row.at("line") + "\n");
  }
  EXPECT_EQ(line(QLOG_COLUMN_SOURCE, "f", nullptr, u"m"), "            : m\n");
}

TEST_F(Logging, MacroNamesItsFunctionAndEvaluatesOnlyWhatIsWritten) {
  (void)qlog_set_format(QLOG_COLUMN_FUNCTION);
  int evaluated = 0;
  const auto count = [&evaluated] { return ++evaluated; };
  const std::string text = printed([&] {
    QLOG(QLOG_DETAIL, u"%d", count());
    QLOG_AS(QLOG_ERROR, "shown_name", u"%d", count());
  });
  EXPECT_EQ(text, "shown_name(): 1\n");
}

TEST_F(Logging, LongLinesAreCutAndEndWithALineFeed) {
  for (const std::size_t units : {0, 8189, 8190, 9000}) {
    EXPECT_EQ(line(0, "f", "x", u"%s", std::u16string(units, u'x')),
              std::string(std::min<std::size_t>(units, 8190), 'x') + "\n");
  }
  EXPECT_EQ(line(0, "f", "x", u"m\n"), "m\n");
}

TEST_F(Logging, LevelAndModuleAreChecked) {
  for (const fixture_row& row : fixture_rows("common/qlib/log_levels.tsv")) {
    const auto write = [&] { return qlog_write(row.number("level"), row.number("module"), "f", "x", 1, u"m"); };
    const std::string text = printed([&] { EXPECT_EQ(write(), row.number("code")) << row.at("why"); });
    EXPECT_EQ(text.empty() ? "no" : "yes", row.at("written")) << row.at("why");
  }
  EXPECT_EQ(qlog_level_index(u"FNEXIT"), 6);
  EXPECT_TEXT(qlog_level_name(2), u"SYSTEM");
  EXPECT_EQ(qlog_level_name(7), nullptr);
}

TEST_F(Logging, BitsChangeTheMaskButNotTheUnion) {
  EXPECT_EQ(qlog_set_module_bits(QLOG_SGN, QLOG_DETAIL), 0U);
  EXPECT_EQ(qlog_union_mask.load(), 7U);
  EXPECT_EQ(qlog_recompute_union(), 0U);
  EXPECT_EQ(qlog_union_mask.load(), 23U);
  EXPECT_EQ(qlog_is_enabled(QLOG_DETAIL, QLOG_SGN), 1U);
  EXPECT_EQ(qlog_is_enabled(QLOG_DETAIL, QLOG_BLIB), 0U);
  EXPECT_EQ(qlog_is_enabled(QLOG_ERROR, 200), 1U);
  EXPECT_EQ(qlog_clear_module_bits(QLOG_SGN, QLOG_DETAIL | QLOG_ERROR), 0U);
  EXPECT_EQ(qlog_module_mask_by_name(u"SGN"), 6);
  EXPECT_EQ(qlog_set_module_bits(87, 1), QERR_ALL_BITS);
}

TEST_F(Logging, MasksAreParsed) {
  for (const fixture_row& row : fixture_rows("common/qlib/log_masks.tsv")) {
    SCOPED_TRACE(row.at("text"));
    const std::string shown = row.at("printed").empty() ? "" : row.at("printed") + "\n";
    EXPECT_EQ(qlog_set_logtype(nullptr), 0U);
    EXPECT_EQ(printed([&] { EXPECT_EQ(qlog_set_logtype(row.wide("text").c_str()), row.number("code")); }), shown);
    EXPECT_EQ(qlog_module_mask(QLOG_CERT), row.number("CERT"));
    EXPECT_EQ(qlog_module_mask(QLOG_SGN), row.number("SGN"));
    EXPECT_EQ(qlog_union_mask.load(), row.number("union"));
  }
}

TEST_F(Logging, MasksAreShownInOrder) {
  qchar buffer[4096];
  ASSERT_EQ(qlog_set_logtype(u"SGN=0x1F"), 0U);
  ASSERT_EQ(qlog_get_logtype(buffer), 0U);
  EXPECT_TRUE(std::regex_match(qstr_to_utf8(buffer), std::regex("QCKSUM=0x00000007,QCONF=0x00000007,"
                                                                "([A-Z0-9_-]+=0x00000007,){57}SGN=0x0000001f"
                                                                "(,[A-Z0-9_-]+=0x00000007){27}")))
      << qstr_to_utf8(buffer);
}

}  // namespace
