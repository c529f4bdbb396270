#include "common/qlib/qlog.h"

#include <regex>

#include "common/qlib/qerr.h"
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
  static std::string line(std::uint32_t format, std::uint32_t level, const char* function, const char* file,
                          const qchar* text, const Args&... args) {
    (void)qlog_set_format(format);
    return printed([&] { EXPECT_EQ(qlog_write(level, QLOG_SGN, function, file, 60, text, args...), 0U); });
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

TEST_F(Logging, EachColumnHasItsForm) {
  const struct {
    std::uint32_t format;
    const char *function, *file, *shown;
  } rows[] = {{0, "f", "x.cpp", ""},
              {QLOG_COLUMN_MODULE | QLOG_COLUMN_LINE, "f", "x.cpp", "SGN:   60: "},
              {QLOG_COLUMN_SOURCE, "f", "a\\b/c\\c.cpp", "c.cpp       : "},
              {QLOG_COLUMN_SOURCE, "f", nullptr, "            : "},
              // The function's qualified name, out of what compilers write.
              {QLOG_COLUMN_FUNCTION, "int __cdecl ns::f(const char *)", "x", "ns::f(): "},
              {QLOG_COLUMN_FUNCTION, "void f(void (*)(int), int (&)[3])", "x", "f(): "},
              {QLOG_COLUMN_FUNCTION, "T ns::f(T) [with T = int; U = void(*)(int)]", "x", "ns::f(): "},
              {QLOG_COLUMN_FUNCTION, "int a<unsigned int>::f(int) noexcept", "x", "a<unsigned int>::f(): "},
              {QLOG_COLUMN_FUNCTION, "void (anonymous namespace)::f(int)", "x", "(anonymous namespace)::f(): "},
              {QLOG_COLUMN_FUNCTION, "int x::operator()(int)", "x", "x::operator()(): "},
              {QLOG_COLUMN_FUNCTION, "a)(b)", "x", "a)(): "}};
  for (const auto& row : rows) {
    EXPECT_EQ(line(row.format, QLOG_ERROR, row.function, row.file, u"m"), std::string(row.shown) + "m\n");
  }
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
    EXPECT_EQ(line(0, QLOG_ERROR, "f", "x", u"%s", std::u16string(units, u'x')),
              std::string(std::min<std::size_t>(units, 8190), 'x') + "\n");
  }
  EXPECT_EQ(line(0, QLOG_ERROR, "f", "x", u"m\n"), "m\n");
}

TEST_F(Logging, LevelAndModuleAreChecked) {
  const struct {
    std::uint32_t level;
    std::uint32_t id;
    qerr_t code;
    bool written;
  } rows[] = {{QLOG_ERROR, QLOG_SGN, 0, true},      {0, QLOG_SGN, 0, true},  // counts as ERROR
              {QLOG_INFO, QLOG_SGN, 0, false},                               // masked
              {QLOG_INFO | 1, QLOG_SGN, 0, false},                           // the highest bit decides
              {QLOG_SYSTEM | 1, QLOG_SGN, 0, true}, {128, 87, QERR_ARG2, false}, {128, QLOG_SGN, QERR_ARG1, false}};
  for (const auto& row : rows) {
    const std::string text = printed([&] { EXPECT_EQ(qlog_write(row.level, row.id, "f", "x", 1, u"m"), row.code); });
    EXPECT_EQ(!text.empty(), row.written) << row.level << ' ' << row.id;
  }
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

TEST_F(Logging, LevelsHaveNames) {
  EXPECT_EQ(qlog_level_index(u"FNEXIT"), 6);
  EXPECT_TEXT(qlog_level_name(2), u"SYSTEM");
  EXPECT_EQ(qlog_level_name(7), nullptr);
}

TEST_F(Logging, MasksAreParsed) {
  const struct {
    const qchar* text;
    qerr_t code;
    std::uint32_t cert;
    std::uint32_t sgn;
    const char* printed;
  } rows[] = {
      {u"CERT=0x7f,NOSUCH=3,SGN=15", 0, 0x7F, 15, ""},
      {u"SGN=010", 0, 7, 8, ""},
      {u"SGN=", 0, 7, 0, ""},
      {u"SGN=-1,CERT= 5", 0, 5, 0xFFFFFFFF, ""},
      {u"SGN=99999999999", 0, 7, 0xFFFFFFFF, ""},
      {u"SGN=1,", 22, 7, 1, "Invalid format for logtype ''\n"},
      {u"SGN=1,CERT,PROG=2", 22, 7, 1, "Invalid format for logtype 'CERT,PROG=2'\n"},
      {u"SGN=1,CERT=12x", 1001, 7, 1, ""},
      {u"CERT=08", 1001, 7, 7, ""},
  };
  for (const auto& row : rows) {
    const std::string name = qstr_to_utf8(row.text);
    EXPECT_EQ(qlog_set_logtype(nullptr), 0U);
    EXPECT_EQ(printed([&] { EXPECT_EQ(qlog_set_logtype(row.text), row.code) << name; }), row.printed) << name;
    EXPECT_EQ(qlog_module_mask(QLOG_CERT), row.cert) << name;
    EXPECT_EQ(qlog_module_mask(QLOG_SGN), row.sgn) << name;
    EXPECT_EQ(qlog_union_mask.load(), row.code == 0 ? (7U | row.cert | row.sgn) : 7U) << name;
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
