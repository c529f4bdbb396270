#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "common/qlib/qfile.h"
#include "common/qlib/qstr_name.h"
#include "support/scratch.h"

namespace {

class PosixFiles : public ScratchTest {
 protected:
  static std::string native(const std::u16string& path) {
    std::string bytes;
    EXPECT_TRUE(qstr_name_to_bytes(path, bytes));
    return bytes;
  }
  void link(const std::string& target, std::u16string_view name) const {
    ASSERT_EQ(::symlink(target.c_str(), native(at(name)).c_str()), 0);
  }
  // Names below the scratch folder; directories end in a slash, links in "@".
  [[nodiscard]] std::set<std::string> walk(std::u16string_view start, std::uint32_t flags = 0) const {
    std::set<std::string> found;
    qfile_itr iterator;
    EXPECT_EQ(qfile_itr_open_ex(&iterator, at(start).c_str(), flags), QERR_OK);
    const qchar* path = nullptr;
    std::uint32_t directory = 0;
    std::uint32_t symlink = 0;
    while (qfile_itr_next(&iterator, &path, &directory, &symlink) == QERR_OK) {
      std::string name = native(path).substr(native(root()).size() + 1);
      found.insert(name + (directory != 0 ? "/" : "") + (symlink != 0 ? "@" : ""));
    }
    return found;
  }
  static qerr_t open_code(const std::u16string& path, std::uint32_t flags) {
    QfileOwner file;
    return qfile_open(file.out(), path.c_str(), flags);
  }
};

using Names = std::set<std::string>;

TEST_F(PosixFiles, SpecialFilesAreNeitherYieldedNorOpened) {
  put(u"t/f");
  ASSERT_EQ(::mknod(native(at(u"t/fifo.exe")).c_str(), S_IFIFO | 0600, 0), 0);
  ASSERT_EQ(::mknod(native(at(u"t/socket.exe")).c_str(), S_IFSOCK | 0600, 0), 0);
  link("fifo.exe", u"t/to-fifo.exe");
  link("/dev/null", u"t/to-null.exe");
  EXPECT_EQ(walk(u"t"), (Names{"t/", "t/f"}));
  EXPECT_EQ(walk(u"t/fifo.exe"), Names{});
  EXPECT_EQ(walk(u"t/*.exe"), Names{});
  for (const char16_t* name : {u"t/fifo.exe", u"t/socket.exe", u"t/to-fifo.exe", u"t/to-null.exe"}) {
    EXPECT_EQ(open_code(at(name), QFILE_READ), 6U);
    EXPECT_EQ(open_code(at(name), QFILE_WRITE | QFILE_CREATE | QFILE_TRUNCATE), 6U);
  }
}

TEST_F(PosixFiles, LinksAreWhatTheyLeadTo) {
  put(u"t/d/f");
  link("d", u"t/to-d");
  link("d/f", u"t/to-f");
  link("nowhere", u"t/dangling");
  link("loop", u"t/loop");
  link("..", u"t/d/up");
  EXPECT_EQ(walk(u"t"), (Names{"t/", "t/d/", "t/d/f", "t/d/up/@", "t/to-d/@", "t/to-d/f", "t/to-d/up/@", "t/to-f@",
                               "t/dangling@", "t/loop@"}));
  EXPECT_EQ(walk(u"t/to-d", QFILE_ITR_NO_REPARSE), (Names{"t/to-d/@"}));
  EXPECT_EQ(walk(u"t/dangling"), (Names{"t/dangling@"}));
  EXPECT_EQ(open_code(at(u"t/dangling"), QFILE_READ), QERR_NOT_FOUND);
  EXPECT_EQ(open_code(at(u"t/loop"), QFILE_READ), 40U);
  // A log is not written through a link.
  EXPECT_EQ(qlog_set_log_file(at(u"t/to-f").c_str()), 40U);
  EXPECT_EQ(qlog_set_log_file(u""), QERR_OK);
  EXPECT_EQ(get(at(u"t/d/f")), "x");
}

TEST_F(PosixFiles, AnyBytesMakeAName) {
  const Names odd = {"t/caf\xE9.exe", "t/a\nb\x01.dll", "t/*"};
  for (const std::string& name : odd) put(qstr_name_from_bytes(name));
  EXPECT_EQ(walk(u"t/*"), (Names{"t/*"})) << "a file of that very name comes before the wildcard";
  EXPECT_EQ(walk(u"t/?*"), odd);
  put(u"t/\u00C4\u0416.txt");
  EXPECT_EQ(walk(u"t/\u00E4\u0436.*"), (Names{"t/\u00C4\u0416.txt"}));
  EXPECT_EQ(open_code(at(u"t/\xD800"), QFILE_READ | QFILE_WRITE | QFILE_CREATE), QERR_NOT_FOUND);
}

TEST_F(PosixFiles, ScarceDescriptorsCostNothingOfATree) {
  std::u16string path = u"t";
  std::size_t expected = 1;
  for (int level = 0; level < 50; ++level, path += u"/d", expected += 5) {
    for (const char16_t* name : {u"/a/f", u"/z/f", u"/d/"}) put(path + name);
  }
  EXPECT_EQ(walk(u"t").size(), expected);  // before descriptors run out: a sanitizer's first look at a type takes two
  const int next = ::dup(0);
  ::close(next);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  for (const rlim_t free : {2U, 3U, 12U}) {
    rlimit low = before;
    low.rlim_cur = static_cast<rlim_t>(next) + free;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const Names found = walk(u"t");
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(found.size(), expected) << free;
  }
}

TEST_F(PosixFiles, WhatWasADirectoryAndIsALinkIsNotFollowed) {
  put(u"t/d/f");
  put(u"outside/secret");
  qfile_itr walk;
  const qchar* path = nullptr;
  ASSERT_EQ(qfile_itr_open(&walk, at(u"t").c_str()), QERR_OK);
  ASSERT_EQ(qfile_itr_next(&walk, &path, nullptr, nullptr), QERR_OK);
  ASSERT_EQ(qfile_itr_next(&walk, &path, nullptr, nullptr), QERR_OK);
  ASSERT_EQ(qfile_rename(at(u"t/d").c_str(), at(u"was").c_str()), QERR_OK);
  link("../outside", u"t/d");
  EXPECT_EQ(qfile_itr_next(&walk, &path, nullptr, nullptr), QERR_END);
  EXPECT_EQ(walk.left_out.directories, 1U);
}

TEST_F(PosixFiles, FullPathIsLexical) {
  ASSERT_EQ(::chdir(native(root()).c_str()), 0);
  const struct {
    std::u16string path, full;
  } cases[] = {
      {u"/", u"/"},
      {u"/..", u"/"},
      {u"/a/./b//c/../../d", u"/a/d"},
      {u"/../../a", u"/a"},
      {u"x", root() + u"/x"},
      {u".", root()},
      {u"/a\\..\\b", u"/a\\..\\b"},
      {u"\\\\server\\share", u"\\\\server\\share"},
      {u"\\\\server\\share\\..\\..\\x", u"\\\\server\\share\\x"},
      {u"\\\\server\\share\\a\\.\\b\\..\\c/..", u"\\\\server\\share\\a\\c/.."},
  };
  for (const auto& one : cases) {
    qchar full[1000];
    std::uint32_t size = 1000;
    EXPECT_EQ(qfile_full_path(one.path.c_str(), full, &size), QERR_OK);
    EXPECT_TEXT(full, one.full);
  }
  ASSERT_EQ(::chdir("/"), 0);
}

}  // namespace
