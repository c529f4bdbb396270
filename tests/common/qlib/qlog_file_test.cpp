// The log file and its rotation, with real files.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "common/qlib/qpath.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;

void write_bytes(const fs::path& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// The file's text without its byte-order mark; "?" when the mark is missing.
std::string log_text(const fs::path& path) {
  const std::string bytes = file_text(path);
  if (!bytes.starts_with("\xFF\xFE") || bytes.size() % 2 != 0) return "?";
  std::u16string text;
  for (std::size_t i = 2; i < bytes.size(); i += 2) {
    text += static_cast<qchar>(static_cast<std::uint8_t>(bytes[i]) | (static_cast<std::uint8_t>(bytes[i + 1]) << 8));
  }
  return qstr_to_utf8(text);
}

// Each test has an empty folder, and a log in it that is not yet set.
class LogFile : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    (void)qlog_set_format(0);
  }
  void TearDown() override {
    EXPECT_EQ(qlog_set_log_file(u""), 0U);
    qlog_set_rotate_count(0);
    qlog_set_rotate_size_kb(2048);
    qlog_set_rotate_interval_ms(10000);
    Runtime::TearDown();
  }
  static qerr_t log(const qchar* text) { return qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x.cpp", 1, u"%s", text); }

  const fs::path folder = scratch_folder("log.d");
  const fs::path path = folder / "app.txt";
  const std::u16string name = path.u16string();
};

TEST_F(LogFile, HoldsTheLinesAfterItsByteOrderMark) {
  EXPECT_NE(qlog_set_log_file(folder.u16string().c_str()), 0U);
  EXPECT_EQ(log(u"lost"), 0U) << "the file's failure is not the line's";
  const fs::path below = folder / "missing" / "log \u00FC.txt";
  ASSERT_EQ(qlog_set_log_file(below.u16string().c_str()), 0U);
  EXPECT_EQ(file_text(below), "\xFF\xFE");
  EXPECT_EQ(log(u"one \u20AC"), 0U);
  ASSERT_EQ(qlog_set_log_file(below.u16string().c_str()), 0U);  // a file with content gets no second mark
  EXPECT_EQ(log(u"two"), 0U);
  EXPECT_EQ(log_text(below), "one \xE2\x82\xAC\ntwo\n");
  write_bytes(below, "");  // one that was emptied does
  EXPECT_EQ(log(u"three"), 0U);
  ASSERT_EQ(qlog_set_log_file(u""), 0U);
  EXPECT_EQ(log(u"four"), 0U);
  EXPECT_EQ(log_text(below), "three\n");
}

TEST_F(LogFile, RotationTakesTheNameAsItIs) {
  const std::u16string plain = (folder / "plain").u16string();
  write_bytes(plain, std::string(1024, 'x'));
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 2, 1), 0U);  // one KiB short of the threshold
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 1, 0), 0U);  // without backups nothing moves
  EXPECT_EQ(file_text(plain).size(), 1024U);
  EXPECT_EQ(qlog_rotate_file(plain.c_str(), 1, 3), 0U);  // backups that are not there yet are no failure
  EXPECT_EQ(file_text(plain), "\xFF\xFE");
  EXPECT_EQ(file_text(folder / "plain_1.log").size(), 1024U);
  EXPECT_EQ(printed([&] { EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 1), QERR_NOT_FOUND); }),
            "Failed to find the size of file \"" + qstr_to_utf8(name) + "\".2(No such file or directory)\n");
  const std::u16string longest =
      folder.u16string() + std::u16string(510 - folder.u16string().size(), qpath_native_separator()) + u"x";
  write_bytes(folder / "x", std::string(1024, 'x'));
  EXPECT_EQ(qlog_rotate_file(longest.c_str(), 1, 1), 36U);
  EXPECT_EQ(file_text(folder / "x"), std::string(1024, 'x'));
}

// A log that the environment names is kept at 2 MiB by whoever writes the line. What an earlier rotation moved aside is
// not lost, and another process that rotates is let.
TEST_F(LogFile, OfTheEnvironmentKeepsItsSizeWithoutAThread) {
  static std::string variable;  // stays the environment's
  variable = "TESSIVATOR_TEST_LOG=" + path.string();
  ASSERT_EQ(::putenv(variable.data()), 0);
  EXPECT_FALSE(qlog_file_from_environment("TESSIVATOR_TEST_NO_LOG"));
  ASSERT_TRUE(qlog_file_from_environment("TESSIVATOR_TEST_LOG"));
  constexpr std::size_t kept = std::size_t{2} << 20U;
  write_bytes(path, std::string(kept - 1, '0'));
  EXPECT_EQ(log(u"+"), 0U);
  EXPECT_EQ(file_text(path).size(), kept - 1 + 4);
  const auto lock = name + u".lock";
  QfileOwner other;
  ASSERT_EQ(qfile_open(other.out(), lock.c_str(), QFILE_CREATE | QFILE_WRITE | QFILE_EXCLUSIVE), QERR_OK);
  EXPECT_EQ(log(u"+"), 0U);
  other.reset();
  EXPECT_FALSE(fs::exists(folder / "app_1.log"));
  write_bytes(folder / "app_0.log", "interrupted");
  EXPECT_EQ(log(u"+"), 0U);
  EXPECT_EQ(file_text(folder / "app_1.log"), "interrupted");
  for (const char content : {'1', '2', '3', '4', '5'}) {
    write_bytes(path, std::string(kept, content));
    EXPECT_EQ(log(u"last"), 0U);
    EXPECT_EQ(log_text(path), "last\n");
  }
  for (const char* backup : {"app_1.log5", "app_2.log4", "app_3.log3", "app_4.log2"}) {
    EXPECT_EQ(file_text(folder / std::string(backup, 9)).substr(0, 2), std::string(2, backup[9])) << backup;
  }
  EXPECT_FALSE(fs::exists(folder / "app_5.log"));
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
  EXPECT_EQ(log_text(path), hundred + "The last line came 900 times more\n" + hundred + "other\n");
}

// The name of a file can hold anything.
TEST_F(LogFile, ValuesForgeNoLine) {
  ASSERT_EQ(qlog_set_log_file(name.c_str()), 0U);
  EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x.cpp", 1, u"[%s]\n[%hs]\n",
                       u"a\r\n\x1b[31m\t\x7f\x85\x9f\u2028\u2029\u00a0b", "c\xc2\x85\nd"),
            0U);
  std::string expected =
      "[a???[31m??????\xC2\xA0"
      "b]\n[c??d]\n";
  for (std::size_t at = 0; (at = expected.find('?')) != std::string::npos;) expected.replace(at, 1, "\xEF\xBF\xBD");
  EXPECT_EQ(log_text(path), expected);
  // The console may not know U+FFFD and show it as it can.
  EXPECT_EQ(said([] { (void)qstr_console_printf(u"%s\n", u"a\x1b]b\n"); }),
            said([] { (void)qstr_console_printf(u"a\xFFFD]b\xFFFD\n"); }));
}

TEST_F(LogFile, ThreadRotatesWhileLinesAreWritten) {
  qlog_set_rotate_interval_ms(5);
  ASSERT_EQ(qlog_init_with_file(name.c_str(), 1), 0U);
  ASSERT_EQ(qlog_start_rotate_thread_for((folder / "other.txt").u16string().c_str()), 0U);
  qlog_set_rotate_size_kb(1);
  qlog_set_rotate_count(2);
  (void)qlog_set_format(0);
  qlog_console_off();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!fs::exists(folder / "app_2.log") && std::chrono::steady_clock::now() < end) {
    // A line may be lost on Windows while another program looks at the file; never may the mark be.
    (void)log(std::u16string(200, u'y').c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  qlog_fini();
  EXPECT_EQ(log(u"late"), QERR_CORRUPTED);
  for (const char* file : {"app.txt", "app_1.log", "app_2.log"}) {
    EXPECT_EQ(log_text(folder / file).find_first_not_of("y\n"), std::string::npos) << file;
  }
  (void)qlog_init();
}

}  // namespace
