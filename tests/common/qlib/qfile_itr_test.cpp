#include "common/qlib/qfile_itr.h"

#include <algorithm>
#include <set>

#include "support/faulty_provider.h"
#include "support/scratch.h"
#include "support/tree_provider.h"

namespace {

using Entries = std::vector<std::string>;

// What a walk yields, in order, relative to `base` with slashes; a directory ends in a slash, a symbolic link in "@".
struct Walked {
  Entries entries;
  std::size_t present = 0;  // those that can be reached while the walk stands at them
  qerr_t opened = 0;
  qerr_t ended = 0;
  qfile_left_out left_out;
  [[nodiscard]] Entries sorted() const {
    const std::multiset<std::string> all(entries.begin(), entries.end());
    return {all.begin(), all.end()};
  }
};

Walked walk(const std::u16string& path, const std::u16string& base = {}, std::uint32_t flags = 0) {
  Walked result;
  qfile_itr iterator;
  result.opened = qfile_itr_open_ex(&iterator, path.c_str(), flags);
  if (result.opened != QERR_OK) return result;
  const qchar* entry = nullptr;
  std::uint32_t directory = 9;
  std::uint32_t symlink = 9;
  while ((result.ended = qfile_itr_next(&iterator, &entry, &directory, &symlink)) == QERR_OK) {
    result.present += qfile_exists(entry) ? 1 : 0;
    std::u16string name(entry);
    if (name.starts_with(base)) name.erase(0, base.size());
    std::replace(name.begin(), name.end(), u'\\', u'/');
    result.entries.push_back(qstr_to_utf8(name) + (directory == 1 ? "/" : "") + (symlink == 1 ? "@" : ""));
    if (result.entries.size() > 500000) break;
  }
  result.left_out = iterator.left_out;
  EXPECT_EQ(entry, nullptr);
  EXPECT_EQ(qfile_itr_next(&iterator, &entry, &directory, &symlink), QERR_END) << "a walk that has ended stays so";
  EXPECT_EQ(qfile_itr_close(&iterator), QERR_OK);
  return result;
}

using Walk = ScratchTest;

TEST_F(Walk, StartDecidesWhatIsYielded) {
  put(u"top/one.exe");
  put(u"top/two.dll");
  put(u"top/a/b/three.exe");
  put(u"empty/");
  const Entries below = {"top/a/", "top/a/b/", "top/a/b/three.exe"};
  const Entries inside = {"top/a/", "top/a/b/", "top/a/b/three.exe", "top/one.exe", "top/two.dll"};
  const Entries all = {"top/", "top/a/", "top/a/b/", "top/a/b/three.exe", "top/one.exe", "top/two.dll"};
  const struct {
    const char16_t* start;
    std::uint32_t flags;
    Entries expected;
  } cases[] = {
      {u"top", 0, all},
      {u"top/", 0, all},
      {u"top/a/.././a", 0, below},
      {u"top", QFILE_ITR_ONE_LEVEL, {"top/", "top/a/", "top/one.exe", "top/two.dll"}},
      {u"top/one.exe", 0, {"top/one.exe"}},
      {u"empty", 0, {"empty/"}},
      {u"top/O*.EXE", 0, {"top/one.exe"}},
      {u"top/*.*", 0, inside},
      {u"empty/../top/a/b.*", 0, {"top/a/b/", "top/a/b/three.exe"}},
      {u"top/?", 0, below},
      {u"top/t?o.*", 0, {"top/two.dll"}},
      {u"top/*.sys", 0, {}},
      {u"missing/deep/er", 0, {}},
      {u"top/one.exe/x", 0, {}},
  };
  for (const auto& one : cases) {
    const Walked got = walk(at(one.start), root() + sep(), one.flags);
    EXPECT_EQ(got.ended, QERR_END);
    EXPECT_EQ(got.sorted(), one.expected) << qstr_to_utf8(one.start);
  }
}

// Deep walks give system handles back; what was parked goes on, and each directory comes before its contents.
TEST_F(Walk, DepthAndLengthHaveNoBound) {
  const std::size_t unit_length = sep() == u'/' ? 19 : 6;  // Linux takes 4,095 bytes at once, Wine no more in all
  std::u16string path = u"deep";
  for (int level = 0; level < 300; ++level) {
    path += u"/d" + std::u16string(unit_length, static_cast<char16_t>(u'a' + level % 26));
    if (level % 10 != 0) continue;
    for (const char16_t* name : {u"/1", u"/2", u"/z/4"}) put(path + name);
  }
  EXPECT_EQ(get(put(path + u"/last", "deepest")), "deepest");
  faulty_provider disk;
  const Walked walked = walk(at(u"deep"), root() + sep());
  EXPECT_EQ(walked.present, walked.entries.size());
  std::set<std::string> seen;
  for (const std::string& entry : walked.entries) {
    EXPECT_TRUE(seen.insert(entry).second) << entry;
    const std::size_t parent = entry.rfind('/', entry.size() - 2) + 1;
    EXPECT_TRUE(parent == 0 || seen.count(entry.substr(0, parent)) == 1) << entry;
  }
  EXPECT_EQ(seen.size(), 1U + 300U + 30U * 4U + 1U);
  EXPECT_GE(disk.parked, 284U);
}

TEST_F(Walk, SearchFaults) {
  put(u"t/a/x");
  put(u"t/b/y");
  faulty_provider disk;
  disk.only(u"a");
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  Walked got;
  const auto walked = [&] { got = walk(at(u"t"), root() + sep()); };
  EXPECT_EQ(logged(QLOG_PROG, walked),
            "Failed to list directory " + qstr_to_utf8(at(u"t/a")) + ". ecode 13: Permission denied.\n");
  EXPECT_EQ(got.sorted(), (Entries{"t/", "t/a/", "t/b/", "t/b/y"})) << "it is passed over";
  EXPECT_EQ(got.left_out.directories, 1U);
  EXPECT_FALSE(got.left_out.ended_early);
  disk.only(u"t");
  disk.fail(file_op::next, 3, QERR_IO);
  EXPECT_EQ(logged(QLOG_PROG, walked), "The walk ended early at " + qstr_to_utf8(at(u"t")) + ". ecode 5: I/O error.\n");
  EXPECT_EQ(got.ended, QERR_IO) << "any other search error ends the walk";
  EXPECT_TRUE(got.left_out.ended_early);
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  walked();
  EXPECT_EQ(got.ended, QERR_PERMISSION) << "a start that cannot be listed";
  EXPECT_TRUE(got.entries.empty());
  disk.fail(file_op::full_path, 1, QERR_PERMISSION);
  EXPECT_EQ(walk(at(u"t")).opened, QERR_PERMISSION);
}

TEST_F(Walk, TheTopFolderListsItsContents) {
  for (const char16_t* start : {sep() == u'\\' ? u"C:" : u"/", sep() == u'\\' ? u"C:\\" : u"//"}) {
    const Entries found = walk(start, {}, QFILE_ITR_ONE_LEVEL).entries;
    EXPECT_EQ(std::count(found.begin(), found.end(), sep() == u'\\' ? "C:/windows/" : "/usr/"), 1);
  }
}

// Trees in memory stand under a share's path, whose separator is the same on every platform.
class WalkLinks : public ::testing::Test {
 protected:
  using kind = tree_provider::kind;
  [[nodiscard]] Entries entries(std::uint32_t flags = 0) const {
    return walk(tree_provider::root_path, u"\\\\server\\share\\", flags).entries;
  }
  tree_provider tree;
  const int top = tree.directory();
};

TEST_F(WalkLinks, ShareRootListsItsContents) {
  EXPECT_TRUE(entries().empty());
  tree.add(top, u"f.exe");
  tree.add(top, u"sub", tree.directory());
  tree.add(top, u"up", top, kind::junction);
  for (const char16_t* start : {u"\\\\server\\share", u"\\\\server\\share\\"}) {
    EXPECT_EQ(walk(start).entries, (Entries{"//server/share/f.exe", "//server/share/sub/", "//server/share/up/"}));
  }
}

TEST_F(WalkLinks, LinksAreReportedAndFollowedOnce) {
  const int a = tree.directory();
  const int b = tree.directory();
  tree.add(top, u"a", a);
  tree.add(a, u"f");
  tree.add(a, u"b", b);
  tree.add(b, u"to-a", a, kind::symlink);
  tree.add(b, u"to-top", top, kind::junction);
  const Entries once = {"a/", "a/f", "a/b/", "a/b/to-a/@", "a/b/to-top/"};
  EXPECT_EQ(entries(), once);
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE), once);
}

// A second way to a folder gives its own entries. One that leads above the start meets the start on its way down.
TEST_F(WalkLinks, AliasesAreWalkedAndCyclesThroughPlainDirectoriesEnd) {
  const int above = tree.directory();
  tree.add(top, u"up", above, kind::symlink);
  tree.add(above, u"f");
  tree.add(above, u"top", top);
  tree.add(top, u"again", above, kind::junction);
  EXPECT_EQ(entries(), (Entries{"up/@", "up/f", "up/top/", "again/", "again/f", "again/top/"}));
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE), (Entries{"up/@", "again/"}));
}

// The seventeenth link is reported, not entered.
TEST_F(WalkLinks, WithoutIdentitiesTheNumberOfLinksEndsACycle) {
  tree.identities = false;
  tree.add(top, u"self", top, kind::symlink);
  EXPECT_EQ(entries().size(), 17U);
}

// Directories of a cloud folder are reparse points without being links.
TEST_F(WalkLinks, PlaceholdersAreNoLinks) {
  for (int from = top; from < top + 40; ++from) tree.add(from, u"n", tree.directory(), kind::placeholder);
  EXPECT_EQ(entries().size(), 40U);
  EXPECT_EQ(entries(QFILE_ITR_NO_REPARSE).size(), 1U);
}

// Ten links to the next one in each of seventeen folders make 10^16 paths; each directory is entered sixteen times.
TEST_F(WalkLinks, LatticesEnd) {
  int from = top;
  for (int level = 0; level < 17; ++level) {
    const int to = tree.directory();
    for (char16_t link = u'0'; link <= u'9'; ++link) tree.add(from, std::u16string(1, link), to, kind::symlink);
    from = to;
  }
  EXPECT_EQ(entries().size(), 10U + 10U * 10U + 15U * 16U * 10U);
}

}  // namespace
