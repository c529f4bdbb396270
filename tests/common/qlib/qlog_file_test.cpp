// The log file and its rotation, with real files.
#include <chrono>
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
    text.push_back(
        static_cast<qchar>(static_cast<std::uint8_t>(bytes[i]) | (static_cast<std::uint8_t>(bytes[i + 1]) << 8)));
  }
  return qstr_to_utf8(text);
}

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
};

TEST_F(LogFile, HoldsTheLinesAfterItsByteOrderMark) {
  const fs::path path = scratch_folder("lines") / "missing" / "log \u00FC.txt";
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);
  EXPECT_EQ(file_text(path), "\xFF\xFE");
  EXPECT_EQ(log(u"one \u20AC"), 0U);
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);  // a file with content gets no second mark
  EXPECT_EQ(log(u"two"), 0U);
  EXPECT_EQ(log_text(path), "one \xE2\x82\xAC\ntwo\n");
  ASSERT_EQ(qlog_set_log_file(u""), 0U);
  EXPECT_EQ(log(u"three"), 0U);
  EXPECT_EQ(log_text(path), "one \xE2\x82\xAC\ntwo\n");
}

TEST_F(LogFile, CannotBeAFolder) {
  const fs::path folder = scratch_folder("folder");
  EXPECT_NE(qlog_set_log_file(folder.u16string().c_str()), 0U);
  EXPECT_EQ(log(u"lost"), 0U) << "the file's failure is not the line's";
  EXPECT_EQ(qlog_set_log_file(nullptr), QERR_ARG1);
}

TEST_F(LogFile, RotationMovesTheBackupsUp) {
  const fs::path folder = scratch_folder("rotation.d");
  const fs::path path = folder / "app.txt";
  const std::u16string name = path.u16string();
  for (const char* content : {"first", "second", "third", "fourth"}) {
    write_bytes(path, std::string(1024, content[0]));
    EXPECT_EQ(qlog_rotate_file(name.c_str(), 2, 3), 0U);  // one KiB short of the threshold
    EXPECT_EQ(file_text(path).size(), 1024U);
    EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 0), 0U);  // without backups nothing moves
    EXPECT_EQ(file_text(path).size(), 1024U);
    EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 3), 0U) << content;
    EXPECT_EQ(file_text(path), "\xFF\xFE");
  }
  EXPECT_EQ(file_text(folder / "app_1.log"), std::string(1024, 'f'));
  EXPECT_EQ(file_text(folder / "app_2.log"), std::string(1024, 't'));
  EXPECT_EQ(file_text(folder / "app_3.log"), std::string(1024, 's'));
  EXPECT_FALSE(fs::exists(folder / "app_4.log"));
}

// By whoever writes the line; what an earlier rotation moved aside is not lost, and another process that rotates is
// let.
TEST_F(LogFile, KeepsItsSizeWithoutAThread) {
  const fs::path folder = scratch_folder("kept");
  const fs::path path = folder / "app.txt";
  ASSERT_EQ(qlog_set_log_file_kept(path.u16string().c_str()), 0U);
  const std::u16string line(8000, u'z');
  const auto fill = [&] {
    for (int i = 0; i < 132; ++i) (void)log((line + static_cast<qchar>(u'a' + i % 26)).c_str());
  };
  QfileOwner other;
  ASSERT_EQ(
      qfile_open(other.out(), (path.u16string() + u".lock").c_str(), QFILE_CREATE | QFILE_WRITE | QFILE_EXCLUSIVE),
      QERR_OK);
  fill();
  EXPECT_FALSE(fs::exists(folder / "app_1.log"));
  other.reset();
  write_bytes(folder / "app_0.log", "interrupted");
  EXPECT_EQ(log(u"next"), 0U);
  EXPECT_EQ(file_text(folder / "app_1.log"), "interrupted");
  EXPECT_EQ(log(u"last"), 0U);
  EXPECT_EQ(log_text(path), "last\n");
  EXPECT_TRUE(log_text(folder / "app_1.log").ends_with("next\n"));
  EXPECT_EQ(file_text(folder / "app_2.log"), "interrupted");
}

TEST_F(LogFile, GetsItsMarkWithALineWhenItWasEmptied) {
  const fs::path path = scratch_folder("emptied") / "app.txt";
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);
  write_bytes(path, "");
  EXPECT_EQ(log(u"one"), 0U);
  EXPECT_EQ(log_text(path), "one\n");
}

// A thousand equal lines, then others; in another row, another count.
TEST_F(LogFile, CountsEqualLinesInsteadOfRepeatingThem) {
  const fs::path path = scratch_folder("equal") / "app.txt";
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);
  std::string expected;
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(log(u"same"), 0U);
  for (int i = 0; i < 100; ++i) expected += "same\n";
  expected += "The last line came 900 times more\n";
  qlog_end_repeats();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(log(u"same"), 0U);
  for (int i = 0; i < 100; ++i) expected += "same\n";
  EXPECT_EQ(log(u"other"), 0U);
  EXPECT_EQ(log_text(path), expected + "other\n");
}

// The name of a file can hold anything.
TEST_F(LogFile, ValuesForgeNoLine) {
  const fs::path path = scratch_folder("forged") / "app.txt";
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);
  EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x.cpp", 1, u"[%s]\n[%hs]\n",
                       u"a\r\n\x1b[31m\t\x7f\x85\x9f\u2028\u2029\u00a0b", "c\xc2\x85\nd"),
            0U);
  const std::string bad = "\xEF\xBF\xBD";
  std::string run;
  for (int i = 0; i < 3; ++i) run += bad;
  EXPECT_EQ(log_text(path), "[a" + run + "[31m" + run + run +
                                "\xC2\xA0"
                                "b]\n[c" +
                                bad + bad + "d]\n");
  // The console may not know U+FFFD and show it as it can.
  EXPECT_EQ(said([] { (void)qstr_console_printf(u"%s\n", u"a\x1b]b\n"); }),
            said([] { (void)qstr_console_printf(u"a\xFFFD]b\xFFFD\n"); }));
}

TEST_F(LogFile, NameWithoutExtensionKeepsItsFolder) {
  const fs::path folder = scratch_folder("rotation.e");
  write_bytes(folder / "plain", std::string(1024, 'x'));
  EXPECT_EQ(qlog_rotate_file((folder / "plain").u16string().c_str(), 1, 1), 0U);
  EXPECT_TRUE(fs::exists(folder / "plain_1.log"));
  EXPECT_EQ(file_text(folder / "plain"), "\xFF\xFE");
}

TEST_F(LogFile, MissingFileIsReported) {
  const std::u16string name = (scratch_folder("rotation.f") / "none.txt").u16string();
  EXPECT_EQ(printed([&] { EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 1), QERR_NOT_FOUND); }),
            "Failed to find the size of file \"" + qstr_to_utf8(name) + "\".2(No such file or directory)\n");
  EXPECT_EQ(qlog_rotate_file(nullptr, 1, 1), QERR_ARG1);
}

TEST_F(LogFile, NamesThatDoNotFitAreNotCut) {
  const fs::path folder = scratch_folder("rotation.g");
  const std::u16string name =
      folder.u16string() + std::u16string(510 - folder.u16string().size(), qpath_native_separator()) + u"x";
  write_bytes(folder / "x", std::string(1024, 'x'));
  EXPECT_EQ(qlog_rotate_file(name.c_str(), 1, 1), 36U);
  EXPECT_EQ(file_text(folder / "x"), std::string(1024, 'x'));
}

TEST_F(LogFile, ThreadRotatesWhileLinesAreWritten) {
  const fs::path folder = scratch_folder("rotation.h");
  const std::u16string name = (folder / "app.txt").u16string();
  ASSERT_EQ(qlog_init_with_file(name.c_str(), 1), 0U);
  qlog_fini_ex(1);
  qlog_set_rotate_interval_ms(5);
  qlog_set_rotate_count(2);
  qlog_set_rotate_size_kb(1);
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
    const std::string text = log_text(folder / file);
    EXPECT_EQ(text.find_first_not_of("y\n"), std::string::npos) << file;
  }
  (void)qlog_init();
}

}  // namespace
