#include "common/qlib/qfile_itr.h"

#include <algorithm>
#include <set>

#include "support/faulty_provider.h"
#include "support/scratch.h"
#include "support/tree_provider.h"

namespace {

// What a walk yields, in order, relative to `base` with slashes; a directory ends in a slash, a symbolic link in "@".
struct Walked {
  std::vector<std::string> entries;
  qerr_t opened = 0;
  qerr_t ended = 0;
  qfile_left_out left_out;
};

std::string shown(std::u16string_view path, const std::u16string& base, bool directory, bool symlink) {
  if (path.starts_with(base)) path.remove_prefix(base.size());
  std::u16string name(path);
  std::replace(name.begin(), name.end(), u'\\', u'/');
  return qstr_to_utf8(name) + (directory ? "/" : "") + (symlink ? "@" : "");
}

Walked walk(const std::u16string& path, const std::u16string& base = {}, std::uint32_t flags = 0) {
  Walked result;
  qfile_itr iterator;
  result.opened = qfile_itr_open_ex(&iterator, path.c_str(), flags);
  if (result.opened != QERR_OK) return result;
  const qchar* entry = nullptr;
  std::uint32_t directory = 9;
  std::uint32_t symlink = 9;
  while ((result.ended = qfile_itr_next(&iterator, &entry, &directory, &symlink)) == QERR_OK) {
    EXPECT_LE(directory, 1U);
    EXPECT_LE(symlink, 1U);
    result.entries.push_back(shown(entry, base, directory == 1, symlink == 1));
    if (result.entries.size() > 500000) break;
  }
  result.left_out = iterator.left_out;
  EXPECT_EQ(entry, nullptr);
  EXPECT_EQ(qfile_itr_next(&iterator, &entry, &directory, &symlink), QERR_END) << "a walk that has ended stays so";
  EXPECT_EQ(qfile_itr_close(&iterator), QERR_OK);
  return result;
}

using Entries = std::vector<std::string>;

Entries sorted(Entries entries) {
  std::sort(entries.begin(), entries.end());
  return entries;
}

using Walk = ScratchTest;

TEST_F(Walk, StartDecidesWhatIsYielded) {
  put(u"top/one.exe");
  put(u"top/two.dll");
  put(u"top/a/b/three.exe");
  put(u"empty/");
  const std::u16string base = root() + sep();
  const struct {
    std::u16string start;
    std::uint32_t flags;
    Entries expected;
  } cases[] = {
      {at(u"top"), 0, {"top/", "top/a/", "top/a/b/", "top/a/b/three.exe", "top/one.exe", "top/two.dll"}},
      {at(u"top/"), 0, {"top/", "top/a/", "top/a/b/", "top/a/b/three.exe", "top/one.exe", "top/two.dll"}},
      {at(u"top/a/.././a"), 0, {"top/a/", "top/a/b/", "top/a/b/three.exe"}},
      {at(u"top"), QFILE_ITR_ONE_LEVEL, {"top/", "top/a/", "top/one.exe", "top/two.dll"}},
      {at(u"top/one.exe"), 0, {"top/one.exe"}},
      {at(u"empty"), 0, {"empty/"}},
      {at(u"top/*.exe"), 0, {"top/one.exe"}},
      {at(u"top/O*.EXE"), 0, {"top/one.exe"}},
      {at(u"top/*.*"), 0, {"top/a/", "top/a/b/", "top/a/b/three.exe", "top/one.exe", "top/two.dll"}},
      {at(u"empty/../top/a/b.*"), 0, {"top/a/b/", "top/a/b/three.exe"}},
      {at(u"top/?"), 0, {"top/a/", "top/a/b/", "top/a/b/three.exe"}},
      {at(u"top/t?o.*"), 0, {"top/two.dll"}},
      {at(u"top/*.sys"), 0, {}},
      {at(u"missing"), 0, {}},
      {at(u"missing/deep/er"), 0, {}},
      {at(u"top/one.exe/x"), 0, {}},
  };
  for (const auto& one : cases) {
    const Walked got = walk(one.start, base, one.flags);
    EXPECT_EQ(got.opened, QERR_OK);
    EXPECT_EQ(got.ended, QERR_END);
    EXPECT_EQ(sorted(got.entries), one.expected) << qstr_to_utf8(one.start);
  }
}

TEST_F(Walk, DirectoryComesBeforeItsContents) {
  put(u"t/a/b/c/f");
  put(u"t/a/g");
  put(u"t/z/h");
  std::set<std::string> seen{"t/"};
  for (const std::string& entry : walk(at(u"t"), root() + sep()).entries) {
    if (entry == "t/") continue;
    const std::size_t parent = entry.rfind('/', entry.size() - 2) + 1;
    EXPECT_EQ(seen.count(entry.substr(0, parent)), 1U) << entry;
    seen.insert(entry);
  }
  EXPECT_EQ(seen.size(), 8U);
}

TEST_F(Walk, DepthAndLengthHaveNoBound) {
  std::u16string path = u"deep";
  for (int level = 0; level < 300; ++level) path += u"/d" + std::u16string(6, static_cast<char16_t>(u'a' + level % 26));
  put(path + u"/bottom.exe");
  put(u"deep/" + std::u16string(200, u'n'));
  faulty_provider disk;
  const Walked got = walk(at(u"deep"), root() + sep());
  EXPECT_EQ(got.entries.size(), 303U);
  EXPECT_EQ(std::count(got.entries.begin(), got.entries.end(), qstr_to_utf8(path) + "/bottom.exe"), 1);
  EXPECT_EQ(disk.open_searches(), 0U);
  EXPECT_GE(disk.parked(), 284U) << "deep walks give system handles back";
}

TEST_F(Walk, ParkedDirectoriesGoOn) {
  std::set<std::string> expected;
  std::u16string path;
  for (int level = 0; level < 40; ++level) {
    path += level == 0 ? u"p" : u"/p";
    for (const char16_t* name : {u"/1", u"/2", u"/3", u"/z/4"}) {
      put(path + name);
      expected.insert(qstr_to_utf8(path + name));
    }
  }
  std::set<std::string> files;
  for (const std::string& entry : walk(at(u"p"), root() + sep()).entries) {
    if (entry.ends_with('/')) continue;
    EXPECT_TRUE(files.insert(entry).second) << entry;
  }
  EXPECT_EQ(files, expected);
}

TEST_F(Walk, SearchFaults) {
  put(u"t/a/x");
  put(u"t/b/y");
  faulty_provider disk;
  disk.only(u"a");
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  Walked got;
  const std::string refused = logged(QLOG_PROG, [&] { got = walk(at(u"t"), root() + sep()); });
  EXPECT_EQ(sorted(got.entries), (Entries{"t/", "t/a/", "t/b/", "t/b/y"})) << "it is passed over";
  EXPECT_EQ(got.left_out.directories, 1U);
  EXPECT_FALSE(got.left_out.ended_early);
  EXPECT_EQ(refused, "Failed to list directory " + qstr_to_utf8(at(u"t/a")) + ". ecode 13: Permission denied.\n");
  disk.only(u"t");
  disk.fail(file_op::next, 3, QERR_IO);
  const std::string ended = logged(QLOG_PROG, [&] { got = walk(at(u"t"), root() + sep()); });
  EXPECT_EQ(got.ended, QERR_IO) << "any other search error ends the walk";
  EXPECT_TRUE(got.left_out.ended_early);
  EXPECT_EQ(ended, "The walk ended early at " + qstr_to_utf8(at(u"t")) + ". ecode 5: I/O error.\n");
  EXPECT_EQ(disk.open_searches(), 0U);
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  got = walk(at(u"t"));
  EXPECT_EQ(got.ended, QERR_PERMISSION) << "a start that cannot be listed";
  EXPECT_TRUE(got.entries.empty());
  disk.fail(file_op::full_path, 1, QERR_PERMISSION);
  EXPECT_EQ(walk(at(u"t")).opened, QERR_PERMISSION);
}

TEST_F(Walk, Arguments) {
  qfile_itr iterator;
  const qchar* path = nullptr;
  EXPECT_EQ(qfile_itr_open(nullptr, u"x"), QERR_ARG1);
  EXPECT_EQ(qfile_itr_open(&iterator, nullptr), QERR_ARG2);
  EXPECT_EQ(qfile_itr_next(nullptr, &path, nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(qfile_itr_next(&iterator, nullptr, nullptr, nullptr), QERR_ARG2);
  EXPECT_EQ(qfile_itr_close(nullptr), QERR_ARG1);
}

// Trees in memory stand under a share's path, whose separator is the same on every platform.
class WalkLinks : public ::testing::Test {
 protected:
  WalkLinks() {
    tree.root_path = u"\\\\server\\share\\top";
    top = tree.directory();
  }
  [[nodiscard]] Entries entries(std::uint32_t flags = 0) const {
    return walk(tree.root_path, u"\\\\server\\share\\", flags).entries;
  }
  tree_provider tree;
  int top = 0;
};

TEST_F(WalkLinks, ShareRootListsItsContents) {
  tree.root_path = u"\\\\server\\share";
  tree.add_file(top, u"f.exe");
  tree.add_directory(top, u"sub", tree.directory());
  tree.add_directory(top, u"up", top, tree_provider::kind::junction);
  EXPECT_EQ(walk(u"\\\\server\\share").entries,
            (Entries{"//server/share/f.exe", "//server/share/sub/", "//server/share/up/"}));
  EXPECT_EQ(walk(u"\\\\server\\share\\").entries.size(), 3U);
}

TEST_F(WalkLinks, EmptyShareRootYieldsNothing) {
  tree.root_path = u"\\\\server\\share";
  EXPECT_TRUE(walk(u"\\\\server\\share").entries.empty());
}

TEST_F(WalkLinks, LinksAreReportedAndFollowedOnce) {
  const int a = tree.directory();
  const int b = tree.directory();
  tree.add_directory(top, u"a", a);
  tree.add_file(a, u"f");
  tree.add_directory(a, u"b", b);
  tree.add_directory(b, u"to-a", a, tree_provider::kind::symlink);
  tree.add_directory(b, u"to-top", top, tree_provider::kind::junction);
  EXPECT_EQ(entries(), (Entries{"top/", "top/a/", "top/a/f", "top/a/b/", "top/a/b/to-a/@", "top/a/b/to-top/"}));
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE), entries());
}

TEST_F(WalkLinks, SiblingLinkIsWalkedUnderBothNames) {
  const int a = tree.directory();
  tree.add_directory(top, u"a", a);
  tree.add_file(a, u"f");
  tree.add_directory(top, u"again", a, tree_provider::kind::junction);
  EXPECT_EQ(entries(), (Entries{"top/", "top/a/", "top/a/f", "top/again/", "top/again/f"}));
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE), (Entries{"top/", "top/a/", "top/a/f", "top/again/"}));
}

// The link leads to a directory above the start; on the way back down the walk meets its own start.
TEST_F(WalkLinks, CycleThroughAPlainDirectoryEnds) {
  const int above = tree.directory();
  tree.add_directory(top, u"up", above, tree_provider::kind::symlink);
  tree.add_file(above, u"f");
  tree.add_directory(above, u"top", top);
  EXPECT_EQ(entries(), (Entries{"top/", "top/up/@", "top/up/f", "top/up/top/"}));
}

TEST_F(WalkLinks, NoPathGoesThroughMoreThanSixteenLinks) {
  int from = top;
  for (int link = 0; link < 20; ++link) {
    const int to = tree.directory();
    tree.add_directory(from, u"n", to, tree_provider::kind::junction);
    from = to;
  }
  EXPECT_EQ(entries().size(), 1U + 17U);  // the seventeenth link is reported, not entered
}

TEST_F(WalkLinks, EachDirectoryIsEnteredSixteenTimes) {
  const int a = tree.directory();
  tree.add_file(a, u"f");
  for (int link = 0; link < 20; ++link) {
    tree.add_directory(top, u"to-a" + std::u16string(1, static_cast<char16_t>(u'a' + link)), a,
                       link == 0 ? tree_provider::kind::plain : tree_provider::kind::junction);
  }
  EXPECT_EQ(entries().size(), 1U + 20U + 16U);
}

// Ten links to the next one in each of seventeen folders make 10^16 paths.
TEST_F(WalkLinks, LatticesEnd) {
  int from = top;
  for (int level = 0; level < 17; ++level) {
    const int to = tree.directory();
    for (char16_t link = u'0'; link <= u'9'; ++link)
      tree.add_directory(from, std::u16string(1, link), to, tree_provider::kind::symlink);
    from = to;
  }
  EXPECT_EQ(entries().size(), 1U + 10U + 10U * 10U + 15U * 16U * 10U);
}

TEST_F(WalkLinks, WithoutIdentitiesTheNumberOfLinksEndsACycle) {
  tree.identities = false;
  tree.add_directory(top, u"self", top, tree_provider::kind::symlink);
  EXPECT_EQ(entries().size(), 1U + 17U);
}

// Directories of a cloud folder are reparse points without being links.
TEST_F(WalkLinks, PlaceholdersAreNoLinks) {
  int from = top;
  for (int level = 0; level < 40; ++level) {
    const int to = tree.directory();
    tree.add_directory(from, u"c", to, tree_provider::kind::placeholder);
    from = to;
  }
  EXPECT_EQ(entries().size(), 41U);
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE).size(), 2U);
}

TEST_F(WalkLinks, HundredThousandEntries) {
  for (int file = 0; file < 100000; ++file)
    tree.add_file(top, u"f" + std::u16string(1, static_cast<char16_t>(0x4E00 + file % 20000)));
  tree.add_directory(top, u"last", tree.directory());
  const Entries all = entries();
  EXPECT_EQ(all.size(), 100002U);
  EXPECT_EQ(all.back(), "top/last/");
}

}  // namespace
