#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/qlib/qfile.h"
#include "common/qlib/qfile_pattern_posix_user.h"
#include "common/qlib/qstr_name.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

namespace fs = std::filesystem;
using PosixFiles = ScratchTest;

TEST_F(PosixFiles, PatternsSelectWhatTheySelectOnWindows) {
  for (const fixture_row& row : fixture_rows("common/qlib/patterns.tsv")) {
    EXPECT_EQ(qfile_name_matches(row.wide("pattern"), row.wide("name")), row.at("matches") == "yes")
        << row.at("pattern") << " " << row.at("name");
  }
  EXPECT_TRUE(qfile_name_matches(std::u16string(64, u'?'), std::u16string(63, u'x')));
}

TEST_F(PosixFiles, SpecialFilesAreNeitherYieldedNorOpened) {
  put(u"t/f");
  ASSERT_EQ(::mknod(fs::path(at(u"t/fifo.exe")).c_str(), S_IFIFO | 0600, 0), 0);
  ASSERT_EQ(::mknod(fs::path(at(u"t/socket.exe")).c_str(), S_IFSOCK | 0600, 0), 0);
  fs::create_symlink("fifo.exe", at(u"t/to-fifo.exe"));
  fs::create_symlink("/dev/null", at(u"t/to-null.exe"));
  EXPECT_THAT(walk_at(u"t").entries, UnorderedElementsAre("t/", "t/f"));
  EXPECT_THAT(walk_at(u"t/fifo.exe").entries, IsEmpty());
  EXPECT_THAT(walk_at(u"t/*.exe").entries, IsEmpty());
  for (const char16_t* name : {u"t/fifo.exe", u"t/socket.exe", u"t/to-fifo.exe", u"t/to-null.exe"}) {
    EXPECT_EQ(open_code(at(name)), 6U);
    EXPECT_EQ(open_code(at(name), QFILE_WRITE | QFILE_CREATE | QFILE_TRUNCATE), 6U);
  }
}

// Nothing of the current directory stands in for it.
TEST_F(PosixFiles, SharesAnswerOneCodeUntilTheyAreEnabled) {
  constexpr qerr_t NO_SHARES = EOPNOTSUPP;
  EXPECT_EQ(open_code(u"\\\\server\\share\\file", QFILE_WRITE | QFILE_CREATE), NO_SHARES);
  EXPECT_EQ(walk(u"\\\\server\\share", 0).ended, NO_SHARES);
  EXPECT_EQ(walk(u"\\\\server\\share\\*", 0).left_out.directories, 1U);
}

TEST_F(PosixFiles, LinksAreWhatTheyLeadTo) {
  put(u"t/d/f");
  fs::create_symlink("d", at(u"t/to-d"));
  fs::create_symlink("d/f", at(u"t/to-f"));
  fs::create_symlink("nowhere", at(u"t/dangling"));
  fs::create_symlink("loop", at(u"t/loop"));
  fs::create_symlink("..", at(u"t/d/up"));
  EXPECT_THAT(walk_at(u"t").entries, UnorderedElementsAre("t/", "t/d/", "t/d/f", "t/d/up/@", "t/to-d/@", "t/to-d/f",
                                                          "t/to-d/up/@", "t/to-f@", "t/dangling@", "t/loop@"));
  EXPECT_THAT(walk_at(u"t/to-d", QFILE_ITR_NO_REPARSE).entries, UnorderedElementsAre("t/to-d/@"));
  EXPECT_THAT(walk_at(u"t/dangling").entries, UnorderedElementsAre("t/dangling@"));
  EXPECT_EQ(open_code(at(u"t/dangling")), QERR_NOT_FOUND);
  EXPECT_EQ(open_code(at(u"t/loop")), 40U);
  // A log is not written through a link.
  EXPECT_EQ(qlog_set_log_file(at(u"t/to-f").c_str()), 40U);
  EXPECT_EQ(qlog_set_log_file(u""), QERR_OK);
  EXPECT_EQ(get(at(u"t/d/f")), "x");
}

TEST_F(PosixFiles, AnyBytesMakeAName) {
  const std::vector<std::string> odd = {"t/caf\xE9.exe", "t/a\nb\x01.dll", "t/*"};
  for (const std::string& name : odd) put(qstr_name_from_bytes(name));
  EXPECT_THAT(walk_at(u"t/*").entries, UnorderedElementsAre("t/*")) << "that very name comes before the wildcard";
  EXPECT_THAT(walk_at(u"t/?*").entries, UnorderedElementsAreArray(odd));
  put(u"t/\u00C4\u0416.txt");
  EXPECT_THAT(walk_at(u"t/\u00E4\u0436.*").entries, UnorderedElementsAre("t/\u00C4\u0416.txt"));
  EXPECT_EQ(open_code(at(u"t/\xD800"), QFILE_READ | QFILE_WRITE | QFILE_CREATE), QERR_NOT_FOUND);
}

TEST_F(PosixFiles, ScarceDescriptorsCostNothingOfATree) {
  std::u16string path = u"t";
  std::size_t expected = 1;
  for (int level = 0; level < 50; ++level, path += u"/d", expected += 5) {
    for (const char16_t* name : {u"/a/f", u"/z/f", u"/d/"}) put(path + name);
  }
  // The first walk is before descriptors run out: a sanitizer's first look at a type takes two.
  EXPECT_EQ(walk_at(u"t").entries.size(), expected);
  const int next = ::dup(0);
  ::close(next);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  for (const rlim_t free : {2U, 3U, 12U}) {
    const rlimit low{static_cast<rlim_t>(next) + free, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const std::size_t found = walk_at(u"t").entries.size();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(found, expected) << free;
  }
}

TEST_F(PosixFiles, WhatWasADirectoryAndIsALinkIsNotFollowed) {
  put(u"t/d/f");
  put(u"outside/secret");
  qfile_itr walk;
  const qchar* path = nullptr;
  ASSERT_EQ(qfile_itr_open(&walk, at(u"t").c_str()), QERR_OK);
  for (int entry = 0; entry < 2; ++entry) ASSERT_EQ(qfile_itr_next(&walk, &path, nullptr, nullptr), QERR_OK);
  ASSERT_EQ(qfile_rename(at(u"t/d").c_str(), at(u"was").c_str()), QERR_OK);
  fs::create_symlink("../outside", at(u"t/d"));
  EXPECT_EQ(qfile_itr_next(&walk, &path, nullptr, nullptr), QERR_END);
  EXPECT_EQ(walk.left_out.directories, 1U);
}

// "~" stands for the current folder.
TEST_F(PosixFiles, FullPathIsLexical) {
  fs::current_path(root());
  for (const fixture_row& row : fixture_rows("common/qlib/full_paths.tsv")) {
    std::u16string expected = row.wide("full");
    if (expected.starts_with(u'~')) expected.replace(0, 1, root());
    qchar full[1000];
    std::uint32_t size = 1000;
    EXPECT_EQ(qfile_full_path(row.wide("path").c_str(), full, &size), QERR_OK);
    EXPECT_TEXT(full, expected);
  }
  fs::current_path("/");
}

}  // namespace
