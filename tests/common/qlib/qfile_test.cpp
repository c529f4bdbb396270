#include "common/qlib/qfile.h"

#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>

#include "common/qlib/qfile_replacement.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

constexpr std::uint32_t READ = QFILE_READ;
constexpr std::uint32_t WRITE = QFILE_WRITE;

class Files : public ScratchTest {
 protected:
  static std::uint64_t position(qfile_t file) {
    std::uint64_t at = 0;
    EXPECT_EQ(qfile_seek(file, 0, QFILE_FROM_CURRENT, &at), QERR_OK);
    return at;
  }
  // Up to `most` bytes from `offset` on.
  static std::string read(qfile_t file, std::int64_t offset, std::uint32_t most = 16) {
    std::string bytes(most, 0);
    std::uint32_t done = 9;
    EXPECT_EQ(qfile_seek(file, offset, QFILE_FROM_START, nullptr), QERR_OK);
    EXPECT_EQ(qfile_read(file, bytes.data(), most, &done), QERR_OK);
    return bytes.substr(0, done);
  }
  static void write(qfile_t file, std::string_view bytes) {
    std::uint32_t done = 0;
    EXPECT_EQ(qfile_write(file, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &done), QERR_OK);
    EXPECT_EQ(done, bytes.size());
  }
  static qerr_t write_whole(const std::u16string& path, std::string_view bytes, std::uint32_t flush = 0) {
    return qfile_write_whole(path.c_str(), bytes.data(), bytes.size(), flush);
  }
  [[nodiscard]] std::ptrdiff_t entries() const {
    return std::distance(std::filesystem::directory_iterator(root()), std::filesystem::directory_iterator());
  }
};

// For each set of flags (append, create, read, truncate, unbuffered, write) the code for a file that is there, what it
// then holds, and the code for one that is not.
TEST_F(Files, OpenFlagsDecide) {
  for (const fixture_row& row : fixture_rows("common/qlib/open.tsv")) {
    SCOPED_TRACE(row.at("flags"));
    std::uint32_t flags = 0;
    for (const char letter : row.at("flags")) flags |= 1U << std::string_view("acrwtu").find(letter);
    const std::u16string path = put(u"f");
    EXPECT_EQ(open_code(path, flags), row.number("code"));
    EXPECT_EQ(get(path), row.at("left"));
    const std::u16string missing = at(u"missing-" + row.wide("flags") + u"/f");
    EXPECT_EQ(open_code(missing, flags), row.number("missing")) << "directories are made for a file that is created";
    EXPECT_EQ(qfile_exists(missing.c_str()), row.number("missing") == QERR_OK);
  }
  EXPECT_NE(open_code(at(u"f/below/a/file"), WRITE | QFILE_CREATE), QERR_OK);
}

TEST_F(Files, ParentsAreMadeUntilAnotherError) {
  EXPECT_EQ(qfile_mkdir_parents(u"no-separator"), QERR_OK);
  faulty_provider disk;
  disk.fail(file_op::make_directory, 2, QERR_PERMISSION);
  EXPECT_EQ(qfile_mkdir_parents(at(u"a/b/c").c_str()), QERR_PERMISSION);
  EXPECT_FALSE(qfile_exists(at(u"a").c_str()));
}

TEST_F(Files, DirectoriesOpenForReadersOnly) {
  const std::u16string directory = put(u"directory/");
  EXPECT_NE(open_code(directory, WRITE), QERR_OK);
  EXPECT_EQ(get(directory).front(), '<') << "they have no bytes";
  std::uint64_t size = 9;
  EXPECT_EQ(qfile_size_by_name(directory.c_str(), &size), QERR_OK) << "but open";
  EXPECT_EQ(size, 0U);
}

TEST_F(Files, SeekReadAppendAndTruncate) {
  const std::u16string path = put(u"f", "0123456789");
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), path.c_str(), READ | WRITE), QERR_OK);
  for (const fixture_row& row : fixture_rows("common/qlib/seeks.tsv")) {
    const qerr_t code = qfile_seek(file.get(), row.number<std::int64_t>("offset"), row.number("origin"), nullptr);
    EXPECT_EQ(code == QERR_OK, row.at("works") == "yes") << row.at("offset");
    EXPECT_EQ(position(file.get()), row.number<std::uint64_t>("position")) << row.at("offset");
  }
  EXPECT_EQ(read(file.get(), 0x100000004), "") << "beyond 4 GiB and beyond the end there is nothing, and no error";
  EXPECT_EQ(read(file.get(), 6), "6789");
  EXPECT_EQ(qfile_truncate(file.get(), 3), QERR_OK);
  EXPECT_EQ(qfile_truncate(file.get(), 1ULL << 63U), QERR_ARG2);
  EXPECT_EQ(position(file.get()), 3U);
  write(file.get(), "x");
  ASSERT_EQ(qfile_open(file.out(), path.c_str(), WRITE | QFILE_APPEND), QERR_OK);
  EXPECT_EQ(qfile_seek(file.get(), 1, QFILE_FROM_START, nullptr), QERR_OK);
  write(file.get(), "+end");
  EXPECT_EQ(position(file.get()), 8U) << "what is appended ignores the position";
  EXPECT_EQ(get(path), "012x+end");
}

TEST_F(Files, ReaderKeepsItsFirstBlockAndItsSize) {
  const std::u16string path = put(u"f", std::string(300000, 'a'));
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), path.c_str(), READ), QERR_OK);
  EXPECT_EQ(read(file.get(), 7, 1), "a");
  EXPECT_EQ(qfile_held(file.get()).size(), 262144U - 8U);
  std::ofstream(std::filesystem::path(path)) << std::string(400000, 'b');
  EXPECT_EQ(read(file.get(), 0, 1), "a");
  EXPECT_EQ(read(file.get(), 262143, 1), "a");
  EXPECT_EQ(qfile_held(file.get()).size(), 0U);
  EXPECT_EQ(read(file.get(), 262144, 1), "b");
  std::uint64_t size = 0;
  EXPECT_EQ(qfile_size(file.get(), &size), QERR_OK);
  EXPECT_EQ(size, 300000U);
  EXPECT_EQ(qfile_seek(file.get(), -1, QFILE_FROM_END, &size), QERR_OK);
  EXPECT_EQ(size, 299999U);
}

TEST_F(Files, ViewHoldsNoMoreThanTheFile) {
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), put(u"f", "MZ56789").c_str(), READ), QERR_OK);
  ASSERT_EQ(qfile_seek(file.get(), 5, QFILE_FROM_START, nullptr), QERR_OK);
  const std::byte* view = nullptr;
  for (const std::uint64_t length : {1ULL, 8192ULL, ~0ULL}) {
    std::uint64_t mapped = 0;
    ASSERT_EQ(qfile_map(file.get(), length, &view, &mapped), QERR_OK) << length;
    EXPECT_EQ(mapped, std::min<std::uint64_t>(length, 7));
    EXPECT_EQ(std::memcmp(view, "MZ56789", mapped), 0);
    EXPECT_EQ(qfile_unmap(view), QERR_OK);
  }
  EXPECT_EQ(position(file.get()), 5U) << "a view leaves the position alone";
  ASSERT_EQ(qfile_open(file.out(), put(u"empty", "").c_str(), READ), QERR_OK);
  EXPECT_EQ(qfile_map(file.get(), 8192, &view), QERR_INVALID);
}

TEST_F(Files, RenameReplacesAndMakesDirectories) {
  put(u"a", "new");
  put(u"b", "old");
  EXPECT_EQ(qfile_rename(at(u"a").c_str(), at(u"b").c_str()), QERR_OK);
  EXPECT_FALSE(qfile_exists(at(u"a").c_str()));
  EXPECT_EQ(qfile_rename(at(u"b").c_str(), at(u"x/y/b").c_str()), QERR_OK);
  EXPECT_EQ(get(at(u"x/y/b")), "new");
  EXPECT_EQ(qfile_rename(at(u"gone").c_str(), at(u"q/b").c_str()), QERR_NOT_FOUND);
  EXPECT_FALSE(qfile_exists(at(u"q").c_str())) << "nothing is made for a source that is missing";
}

TEST_F(Files, CopyDeleteAndDirectories) {
  const std::u16string a = put(u"a", std::string(200000, 'z'));
  const std::u16string b = at(u"b");
  EXPECT_EQ(qfile_copy(a.c_str(), b.c_str(), 1), QERR_OK);
  EXPECT_EQ(get(b), std::string(200000, 'z'));
  put(u"a", "short");
  EXPECT_NE(qfile_copy(a.c_str(), b.c_str(), 1), QERR_OK);
  EXPECT_EQ(qfile_copy(a.c_str(), b.c_str(), 0), QERR_OK);
  EXPECT_EQ(get(b), "short");
  EXPECT_NE(qfile_copy(a.c_str(), a.c_str(), 0), QERR_OK);
  EXPECT_EQ(get(a), "short") << "a file copied onto itself stays whole";
  EXPECT_EQ(qfile_delete(a.c_str()), QERR_OK);
  EXPECT_EQ(qfile_delete(a.c_str()), QERR_NOT_FOUND);
  EXPECT_EQ(qfile_mkdir(a.c_str()), QERR_OK);
  EXPECT_NE(qfile_mkdir(a.c_str()), QERR_OK);
  EXPECT_EQ(qfile_rmdir(a.c_str()), QERR_OK);
  EXPECT_FALSE(qfile_exists(a.c_str()));
  faulty_provider disk;
  disk.fail(file_op::remove, 1, QERR_SYSTEM_BASE + 183, 1, qsys_condition::already_exists);
  EXPECT_EQ(qfile_delete(b.c_str()), QERR_OK) << "deliberately";
  EXPECT_TRUE(qfile_exists(b.c_str()));
}

TEST_F(Files, InfoIsLocalTimeSince1601) {
  qfile_info info{};
  ASSERT_EQ(qfile_get_info_by_name(put(u"f", "12345").c_str(), &info), QERR_OK);
  EXPECT_EQ(info.size, 5U);
  const std::int64_t written = info.last_write_time / 10000000 - 11644473600;
  EXPECT_LT(std::abs(written - std::time(nullptr)), 15 * 3600) << "no time zone is further away";
  EXPECT_LE(info.creation_time, info.last_write_time + 10000000);
  EXPECT_EQ(qfile_get_info_by_name(at(u"gone").c_str(), &info), QERR_NOT_FOUND);
}

TEST_F(Files, TellOneStateFromAnother) {
  const std::filesystem::path path(put(u"f", "12345"));
  const auto stamp_of = [](const std::filesystem::path& file) {
    QfileOwner opened;
    qfile_stamp stamp;
    EXPECT_EQ(qfile_open(opened.out(), file.u16string().c_str(), READ), QERR_OK);
    EXPECT_EQ(qfile_get_stamp(opened.get(), &stamp), QERR_OK);
    return stamp;
  };
  const auto then = std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(981173106)));
  std::filesystem::last_write_time(path, then);
  const qfile_stamp first = stamp_of(path);
  EXPECT_EQ(first.size, 5U);
  EXPECT_EQ(first.modified, (qfile_time{981173106, 0}));
  EXPECT_NEAR(static_cast<double>(first.changed.seconds), static_cast<double>(std::time(nullptr)), 60.0);
  std::filesystem::create_hard_link(path, at(u"same"));
  put(u"other", "12345");
  EXPECT_EQ(stamp_of(at(u"same")).number, first.number);
  const qfile_stamp other = stamp_of(at(u"other"));
  EXPECT_NE(other.number, first.number);
  qfile_info info{};
  EXPECT_EQ(qfile_get_info_by_name(at(u"other").c_str(), &info), QERR_OK);
  EXPECT_EQ(other.modified.nanoseconds / 100, info.last_write_time % 10000000);
  // A change that puts the modified time back is seen all the same.
  std::ofstream(path) << "54321";
  std::filesystem::last_write_time(path, then);
  EXPECT_EQ(stamp_of(path).modified, first.modified);
  EXPECT_NE(stamp_of(path), first);
}

TEST_F(Files, FullPathTellsTheNeededSize) {
  const std::u16string expected = at(u"b");
  std::u16string buffer(expected.size() + 1, u'#');
  auto size = static_cast<std::uint32_t>(expected.size());
  EXPECT_EQ(qfile_full_path(at(u"a/../b").c_str(), buffer.data(), &size), QERR_BUFFER_SMALL);
  EXPECT_EQ(size, expected.size() + 1);
  EXPECT_EQ(qfile_full_path(at(u"a/../b").c_str(), buffer.data(), &size), QERR_OK);
  EXPECT_EQ(buffer.c_str(), expected);
  EXPECT_NE(qfile_full_path(u"", buffer.data(), &size), QERR_OK);
}

TEST_F(Files, ExclusiveIsRefusedToTheSecond) {
  const std::u16string path = put(u"f");
  QfileOwner first;
  ASSERT_EQ(qfile_open(first.out(), path.c_str(), READ | QFILE_EXCLUSIVE), QERR_OK);
  EXPECT_EQ(open_code(path, WRITE | QFILE_TRUNCATE | QFILE_EXCLUSIVE), QERR_SHARING);
  first.reset();
  EXPECT_EQ(get(path), "x") << "a refused opener does not truncate";
  EXPECT_EQ(open_code(path, READ | QFILE_EXCLUSIVE), QERR_OK);
}

TEST_F(Files, WriteWholeCreatesAndReplaces) {
  const std::u16string path = at(u"report.xml");
  for (const char* bytes : {"first, and longer", "second", ""}) EXPECT_EQ(write_whole(path, bytes, 1), QERR_OK);
  EXPECT_EQ(get(path), "");
  EXPECT_EQ(entries(), 1);
  EXPECT_EQ(write_whole(at(u"missing/f"), "x"), QERR_NOT_FOUND) << "directories are not created";
  put(u"directory/kept");
  EXPECT_NE(write_whole(at(u"directory"), "x"), QERR_OK);
  EXPECT_EQ(entries(), 2);
}

TEST_F(Files, AnyFailureOfWriteWholeLeavesTheTargetAndNothingElse) {
  const std::u16string path = put(u"f", "old");
  faulty_provider disk;
  for (const file_op step :
       {file_op::create_exclusive, file_op::write, file_op::flush, file_op::rename, file_op::count}) {
    const bool is_full = step == file_op::count;
    if (is_full) disk.room = 2;
    disk.fail(step, 1, QERR_IO);
    EXPECT_EQ(write_whole(path, "newer", 1), is_full ? QERR_NO_SPACE : QERR_IO);
    EXPECT_EQ(get(path), "old") << static_cast<int>(step);
    EXPECT_EQ(entries(), 1) << static_cast<int>(step);
  }
}

TEST_F(Files, WriteWholeTakesAnotherNameWhenOneIsTakenAndFlushesWhenAsked) {
  faulty_provider disk;
  disk.fail(file_op::create_exclusive, 1, QERR_EXISTS, 3, qsys_condition::already_exists);
  EXPECT_EQ(write_whole(at(u"f"), "x"), QERR_OK);
  EXPECT_EQ(disk.calls(file_op::create_exclusive), 4U);
  EXPECT_EQ(disk.calls(file_op::flush), 0U);
  disk.fail(file_op::create_exclusive, 1, QERR_EXISTS, faulty_provider::ALWAYS, qsys_condition::already_exists);
  EXPECT_EQ(write_whole(at(u"f"), "y"), QERR_EXISTS);
  EXPECT_EQ(get(at(u"f")), "x");
}

// What a commit does when the target is held: so many renames onto it fail, and it opens for writing or not.
TEST_F(Files, CommitOverHeldGoesOnToTheNextWay) {
  const struct {
    std::uint32_t renames, opens;
    qsys_condition condition;
    qerr_t code;
    qfile_committed how;
    std::uint32_t pauses;
    const char *target, *other;
  } cases[] = {{0, 0, qsys_condition::held, QERR_OK, qfile_committed::renamed, 0, "new", "<2>"},
               {4, 0, qsys_condition::held, QERR_OK, qfile_committed::renamed, 4, "new", "<2>"},
               {51, 0, qsys_condition::held, QERR_OK, qfile_committed::renamed, 50, "new", "<2>"},  // aside
               {52, 0, qsys_condition::held, QERR_OK, qfile_committed::copied, 50, "new", "<2>"},
               {52, 1, qsys_condition::held, QERR_OK, qfile_committed::beside, 50, "older and longer", "new"},
               {1, 0, qsys_condition::none, QERR_SHARING, qfile_committed::renamed, 0, "older and longer", "<2>"}};
  for (const auto& c : cases) {
    const std::u16string path = put(u"f", "older and longer");
    faulty_provider disk;
    disk.only(u"f");
    disk.fail(file_op::rename, 1, QERR_SHARING, c.renames, c.condition);
    disk.fail(file_op::open, 1, QERR_SHARING, c.opens, qsys_condition::held);
    auto how = qfile_committed::renamed;
    {
      qfile_replacement file;
      ASSERT_EQ(file.begin(path.c_str()), QERR_OK);
      ASSERT_EQ(file.write("new", 3), QERR_OK);
      EXPECT_EQ(file.commit_over_held(u"other", &how), c.code) << c.renames;
    }
    EXPECT_EQ(how, c.how) << c.renames;
    EXPECT_EQ(disk.calls(file_op::pause), c.pauses) << c.renames;
    EXPECT_EQ(get(path), c.target) << c.renames;
    EXPECT_EQ(get(at(u"other")), c.other) << c.renames;
    EXPECT_EQ(entries(), c.how == qfile_committed::beside ? 2 : 1) << "no temporary file stays";
    (void)qfile_delete(at(u"other").c_str());
  }
}

TEST_F(Files, MissingArgumentIsReportedByPosition) {
  qfile_t file = QFILE_INVALID;
  qfile_itr walk{};
  EXPECT_EQ(qfile_itr_open_ex(nullptr, u"x", 0), QERR_ARG1);
  EXPECT_EQ(qfile_itr_open_ex(&walk, nullptr, 0), QERR_ARG2);
  EXPECT_EQ(qfile_open(nullptr, u"x", 0), QERR_ARG1);
  EXPECT_EQ(qfile_open(&file, nullptr, 0), QERR_ARG2);
  EXPECT_EQ(qfile_get_info_by_name(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(qfile_get_info_by_name(u"x", nullptr), QERR_ARG2);
  EXPECT_EQ(qfile_rename(nullptr, u"x"), QERR_ARG1);
  EXPECT_EQ(qfile_rename(u"x", nullptr), QERR_ARG2);
  EXPECT_EQ(qfile_copy(nullptr, u"x", 0), QERR_ARG1);
  EXPECT_EQ(qfile_copy(u"x", nullptr, 0), QERR_ARG2);
  EXPECT_EQ(qfile_delete(nullptr), QERR_ARG1);
  EXPECT_EQ(qfile_mkdir(nullptr), QERR_ARG1);
}

}  // namespace
