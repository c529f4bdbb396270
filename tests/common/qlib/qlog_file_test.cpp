// The log file and its rotation, with real files.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "common/qlib/qlog_state.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

// Each test has a log in its folder that is not yet set.
class LogFile : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    (void)qlog_set_format(0);
    name = at(u"app.txt");
  }
  void TearDown() override {
    EXPECT_EQ(qlog_set_log_file(u""), 0U);
    qlog_set_rotate_count(0);
    qlog_set_rotate_size_kb(2048);
    qlog_set_rotate_interval_ms(10000);
    ScratchTest::TearDown();
  }
  static qerr_t log(const qchar* text) { return qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x.cpp", 1, u"%s", text); }
  std::u16string name;
};

TEST_F(LogFile, HoldsTheLinesAfterItsByteOrderMark) {
  EXPECT_NE(qlog_set_log_file(root().c_str()), 0U);
  EXPECT_EQ(log(u"lost"), 0U) << "the file's failure is not the line's";
  const std::u16string below = at(u"missing/log \u00FC.txt");
  ASSERT_EQ(qlog_set_log_file(below.c_str()), 0U);
  EXPECT_EQ(get(below), "\xFF\xFE");
  EXPECT_EQ(log(u"one \u20AC"), 0U);
  ASSERT_EQ(qlog_set_log_file(below.c_str()), 0U);  // a file with content gets no second mark
  EXPECT_EQ(log(u"two"), 0U);
  EXPECT_EQ(utf16_text(below), "one \xE2\x82\xAC\ntwo\n");
  put(u"missing/log \u00FC.txt", "");  // one that was emptied does
  EXPECT_EQ(log(u"three"), 0U);
  ASSERT_EQ(qlog_set_log_file(u""), 0U);
  EXPECT_EQ(log(u"four"), 0U);
  EXPECT_EQ(utf16_text(below), "three\n");
}

TEST_F(LogFile, RotationTakesTheNameAsItIs) {
  const std::string content(1024, 'x');
  const std::u16string plain = put(u"plain", content);
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 2, 1), 0U);  // one KiB short of the threshold
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 1, 0), 0U);  // without backups nothing moves
  EXPECT_EQ(get(plain), content);
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 1, 3), 0U);  // backups that are not there yet are no failure
  EXPECT_EQ(get(plain), "\xFF\xFE");
  EXPECT_EQ(get(at(u"plain_1.log")), content);
  EXPECT_EQ(printed([&] { EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 1), QERR_NOT_FOUND); }),
            "Failed to find the size of file \"" + qstr_to_utf8(name) + "\".2(No such file or directory)\n");
  const std::u16string longest = root() + std::u16string(510 - root().size(), sep()) + u"x";
  put(u"x", content);
  EXPECT_EQ(qlog_rotate_file(longest.c_str(), 1, 1), 36U);
  EXPECT_EQ(get(at(u"x")), content);
}

// A log that the environment names is kept at 2 MiB by whoever writes the line. What an earlier rotation moved aside is
// not lost, and another process that rotates is let.
TEST_F(LogFile, OfTheEnvironmentKeepsItsSizeWithoutAThread) {
  static std::string variable;  // stays the environment's
  variable = "TESSIVATOR_TEST_LOG=" + qstr_to_utf8(name);
  ASSERT_EQ(::putenv(variable.data()), 0);
  EXPECT_EQ(qlog_file_from_environment("TESSIVATOR_TEST_NO_LOG").path, u"");
  ASSERT_EQ(qlog_file_from_environment("TESSIVATOR_TEST_LOG").path, name);
  constexpr std::size_t kept = std::size_t{2} << 20U;
  put(u"app.txt", std::string(kept - 1, '0'));
  EXPECT_EQ(log(u"+"), 0U);
  EXPECT_EQ(get(name).size(), kept - 1 + 4);
  const auto lock = name + u".lock";
  QfileOwner other;
  ASSERT_EQ(qfile_open(other.out(), lock.c_str(), QFILE_CREATE | QFILE_WRITE | QFILE_EXCLUSIVE), QERR_OK);
  EXPECT_EQ(log(u"+"), 0U);
  other.reset();
  EXPECT_FALSE(qfile_exists(at(u"app_1.log").c_str()));
  put(u"app_0.log", "not of a rotation");
  put(u"app.txt.rotating", "interrupted");
  EXPECT_EQ(log(u"+"), 0U);
  EXPECT_EQ(get(at(u"app_1.log")), "interrupted");
  for (const char content : {'1', '2', '3', '4', '5'}) {
    put(u"app.txt", std::string(kept, content));
    EXPECT_EQ(log(u"last"), 0U);
    EXPECT_EQ(utf16_text(name), "last\n");
  }
  const std::pair<const char16_t*, char> backups[] = {{u"1", '5'}, {u"2", '4'}, {u"3", '3'}, {u"4", '2'}};
  for (const auto& [number, content] : backups) {
    EXPECT_EQ(get(at(u"app_" + std::u16string(number) + u".log"))[1], content);
  }
  EXPECT_FALSE(qfile_exists(at(u"app_5.log").c_str()));
  EXPECT_EQ(get(at(u"app_0.log")), "not of a rotation");
}

TEST_F(LogFile, TellsOnceThatItCannotBeRotated) {
  const std::u16string path = put(u"app.txt", std::string(1024, 'x'));
  faulty_provider disk;
  disk.fail(file_op::rename, 1, QERR_SHARING, 3);
  std::string said;
  for (int turn = 0; turn < 4; ++turn) said += printed([&] { (void)qlog_rotate_file(path.c_str(), 1, 1); });
  const std::string told = "Failed to rotate log file \"" + qstr_to_utf8(path) + "\". 1020(";
  EXPECT_EQ(said.find(told), 0U) << said;
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_EQ(get(at(u"app_1.log")).size(), 1024U);
}

// A thousand equal lines, then others; in another row, another count.
TEST_F(LogFile, CountsEqualLinesInsteadOfRepeatingThem) {
  ASSERT_EQ(qlog_set_log_file(name.c_str()), 0U);
  std::string hundred;
  for (int i = 0; i < 100; ++i) hundred += "same\n";
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(log(u"same"), 0U);
  qlog_end_repeats();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(log(u"same"), 0U);
  EXPECT_EQ(log(u"other"), 0U);
  EXPECT_EQ(utf16_text(name), hundred + "The last line came 900 times more\n" + hundred + "other\n");
  qlog_state.repeat_ms = 0;  // a minute later, as it were
  for (int i = 0; i < 101; ++i) EXPECT_EQ(log(u"alive"), 0U);
  qlog_state.repeat_ms = 60000;
  const std::string all = utf16_text(name);
  EXPECT_EQ(all.size() - all.find("alive"), 101 * std::string_view("alive\n").size());
}

// The name of a file can hold anything.
TEST_F(LogFile, ValuesForgeNoLine) {
  ASSERT_EQ(qlog_set_log_file(name.c_str()), 0U);
  EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x.cpp", 1, u"[%s]\n[%hs]\n",
                       u"a\r\n\x1b[31m\t\x7f\x85\x9f\u2028\u2029\u00a0b", "c\xc2\x85\nd"),
            0U);
  std::string expected = "[a???[31m??????\u00A0b]\n[c??d]\n";
  for (std::size_t at = 0; (at = expected.find('?')) != std::string::npos;) expected.replace(at, 1, "\xEF\xBF\xBD");
  EXPECT_EQ(utf16_text(name), expected);
  // The console may not know U+FFFD and show it as it can.
  EXPECT_EQ(said([] { (void)qstr_console_printf(u"%s\n", u"a\x1b]b\n"); }),
            said([] { (void)qstr_console_printf(u"a\xFFFD]b\xFFFD\n"); }));
}

TEST_F(LogFile, ThreadRotatesWhileLinesAreWritten) {
  qlog_set_rotate_interval_ms(5);
  ASSERT_EQ(qlog_init_with_file(name.c_str(), 1), 0U);
  ASSERT_EQ(qlog_start_rotate_thread_for(at(u"other.txt").c_str()), 0U);
  qlog_set_rotate_size_kb(1);
  qlog_set_rotate_count(2);
  (void)qlog_set_format(0);
  qlog_console_off();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!qfile_exists(at(u"app_2.log").c_str()) && std::chrono::steady_clock::now() < end) {
    // A line may be lost on Windows while another program looks at the file; never may the mark be.
    (void)log(std::u16string(200, u'y').c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  qlog_fini();
  EXPECT_EQ(log(u"late"), QERR_CORRUPTED);
  for (const char16_t* file : {u"app.txt", u"app_1.log", u"app_2.log"}) {
    EXPECT_EQ(utf16_text(at(file)).find_first_not_of("y\n"), std::string::npos);
  }
  (void)qlog_init();
}

}  // namespace
