#include "common/qlib/qfile_itr.h"

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <sstream>

#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/refusing_provider.h"
#include "support/scratch.h"

namespace {

using testing::ElementsAreArray;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

using Walk = ScratchTest;

TEST_F(Walk, StartDecidesWhatIsYielded) {
  for (const char16_t* name : {u"top/one.exe", u"top/two.dll", u"top/a/b/three.exe", u"empty/"}) put(name);
  for (const fixture_row& row : fixture_rows("common/qlib/walks.tsv")) {
    const walked got = walk_at(row.wide("start"), row.number("flags"));
    EXPECT_EQ(got.ended, QERR_END);
    EXPECT_THAT(got.entries, UnorderedElementsAreArray(fixture_cells(row.at("yields"), ','))) << row.at("start");
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
  EXPECT_TRUE(qfile_exists(at(path + u"/last").c_str()));
  faulty_provider disk;
  std::set<std::string> seen{""};
  for (const std::string& entry : walk_at(u"deep").entries) {
    EXPECT_TRUE(seen.contains(entry.substr(0, entry.rfind('/', entry.size() - 2) + 1))) << entry;
    EXPECT_TRUE(seen.insert(entry).second) << entry;
  }
  EXPECT_EQ(seen.size(), 1U + 1U + 300U + 30U * 4U + 1U);
  EXPECT_GE(disk.parked, 284U);
}

TEST_F(Walk, SearchFaults) {
  put(u"t/a/x");
  put(u"t/b/y");
  faulty_provider disk;
  disk.only(u"a");
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  walked got;
  const auto log = [&] { return logged(QLOG_PROG, [&] { got = walk_at(u"t"); }); };
  EXPECT_EQ(log(), "Failed to list directory " + qstr_to_utf8(at(u"t/a")) + ". ecode 13: Permission denied.\n");
  EXPECT_THAT(got.entries, UnorderedElementsAre("t/", "t/a/", "t/b/", "t/b/y")) << "it is passed over";
  EXPECT_EQ(got.left_out.directories, 1U);
  EXPECT_FALSE(got.left_out.ended_early);
  disk.only(u"t");
  disk.fail(file_op::next, 3, QERR_IO);
  EXPECT_EQ(log(), "The walk ended early at " + qstr_to_utf8(at(u"t")) + ". ecode 5: I/O error.\n");
  EXPECT_EQ(got.ended, QERR_IO) << "any other search error ends the walk";
  EXPECT_TRUE(got.left_out.ended_early);
  disk.fail(file_op::list, 1, QERR_PERMISSION);
  EXPECT_EQ(walk_at(u"t").ended, QERR_PERMISSION) << "a start that cannot be listed";
  disk.fail(file_op::full_path, 1, QERR_PERMISSION);
  EXPECT_EQ(walk_at(u"t").opened, QERR_PERMISSION);
}

TEST_F(Walk, TheTopFolderListsItsContents) {
  for (const char16_t* start : {sep() == u'\\' ? u"C:" : u"/", sep() == u'\\' ? u"C:\\" : u"//"}) {
    EXPECT_THAT(walk(start, 0, QFILE_ITR_ONE_LEVEL).entries,
                testing::Contains(sep() == u'\\' ? "C:/windows/" : "/usr/").Times(1));
  }
}

// A file tree in memory, with links that a disk of the test machine need not offer. "0 a = 1, 1 f . 0" tells of each
// entry the number of its directory, its name, its kind, and the number of the directory that it leads to: "." a file,
// "=" a directory, "@" a symbolic link, ">" a junction, "~" a directory of a cloud folder, which is a reparse point
// without being a link. Directory 0 is the root of a share, whose separator is the same on every platform.
class tree_provider final : public refusing_provider, replaced<qfile_set_provider> {
 public:
  static constexpr const qchar* root = u"\\\\server\\share";

  // What the storage answers when it is asked for a directory's number.
  enum class numbers { own, none, zero, ones };

  explicit tree_provider(const std::string& tree, numbers answered = numbers::own)
      : replaced(this), answered_(answered) {
    std::istringstream text(tree);
    int directory = 0;
    item one;
    for (char comma = 0; text >> directory >> one.name >> one.kind >> one.node; text >> comma) {
      directories_[directory].push_back(one);
    }
  }
  qsys_status list(const qfile_listing& wanted, Search& out) override {
    std::u16string path(wanted.path);
    if (path.ends_with(u'\\')) path.pop_back();
    const auto found = reached_.find(path);
    if (found == reached_.end()) return missing();
    const int node = found->second;
    for (const item& one : directories_[node]) {
      if (one.kind != '.') reached_[path + u'\\' + qstr_to_wide(one.name)] = one.node;
    }
    out = std::make_unique<listing>(directories_[node], node, answered_);
    return {};
  }

 private:
  struct item {
    std::string name;
    char kind;
    int node;
  };

  struct listing final : qfile_search {
    listing(std::vector<item> items, int node, numbers answered)
        : items_(std::move(items)), node_(node), answered_(answered) {}
    bool identity(qfile_identity& out) const noexcept override {
      out = {1, static_cast<std::uint64_t>(node_) + 1, 0};
      if (answered_ == numbers::zero) out.index_low = 0;
      if (answered_ == numbers::ones) out.index_low = out.index_high = ~std::uint64_t{0};
      return answered_ != numbers::none;
    }
    qsys_status next(qfile_entry& entry) override {
      if (taken_ == items_.size()) return {QERR_END, qsys_condition::end_of_directory};
      const auto& [name, kind, node] = items_[taken_++];
      const bool is_plain = kind == '.' || kind == '=';
      entry = {qstr_to_wide(name), kind != '.', !is_plain, kind == '@', kind == '@' || kind == '>'};
      return {};
    }
    std::vector<item> items_;
    int node_;
    numbers answered_;
    std::size_t taken_ = 0;
  };

  numbers answered_;
  std::map<int, std::vector<item>> directories_;
  std::map<std::u16string, int> reached_{{root, 0}};  // as far as they were listed
};

std::vector<std::string> links(const std::string& tree, std::uint32_t flags = 0, const char16_t* end = u"") {
  const tree_provider disk(tree);
  return walk(tree_provider::root + std::u16string(end), 15, flags).entries;
}

// A second way to a folder gives its own entries. One that leads above the start meets the start on its way down.
TEST(WalkLinks, AreReportedAndFollowedOnce) {
  for (const fixture_row& row : fixture_rows("common/qlib/links.tsv")) {
    const auto all = fixture_cells(row.at("walked"), ',');
    EXPECT_THAT(links(row.at("tree")), ElementsAreArray(all));
    EXPECT_THAT(links(row.at("tree"), 0, u"\\"), ElementsAreArray(all));
    EXPECT_THAT(links(row.at("tree"), QFILE_ITR_NO_REPARSE),
                ElementsAreArray(fixture_cells(row.at("no_reparse"), ',')));
  }
}

// The seventeenth link is reported, not entered.
TEST(WalkLinks, WithoutIdentitiesTheirNumberEndsACycle) {
  for (const auto answered : {tree_provider::numbers::none, tree_provider::numbers::zero}) {
    const tree_provider disk("0 self @ 0", answered);
    EXPECT_EQ(walk(tree_provider::root, 15).entries.size(), 17U);
  }
}

// `ways` entries of the given kind lead from the root to folders of one file each: to one folder, or each to its own.
std::string fan(int ways, char kind, bool one_folder, const std::string& more = "") {
  std::string tree;
  for (int way = 1; way <= ways; ++way) {
    const std::string node = std::to_string(one_folder ? 1 : way);
    tree += "0 " + std::to_string(way) + " " + kind + " " + node + ",";
    if (way == 1 || !one_folder) tree += node + " f . 0,";
  }
  return tree + more;
}

TEST(WalkLinks, LimitIsSixteenWaysThroughLinksAndSixteenWithout) {
  using enum tree_provider::numbers;
  const struct {
    std::string tree;
    tree_provider::numbers answered;
    std::ptrdiff_t files;
  } rows[] = {
      {fan(40, '=', false), zero, 40},         {fan(40, '=', false), ones, 40},
      {fan(40, '@', false), zero, 16},         {fan(40, '@', false), own, 40},
      {fan(20, '=', true), own, 16},           {fan(20, '@', true, "0 real = 1"), own, 17},
      {"0 a = 1, 1 top = 0, 1 f . 0", own, 1},
  };
  for (const auto& row : rows) {
    const tree_provider disk(row.tree, row.answered);
    const walked got = walk(tree_provider::root, 15);
    EXPECT_EQ(std::ranges::count_if(got.entries, [](const std::string& name) { return name.ends_with("f"); }),
              row.files)
        << row.tree;
  }
}

TEST_F(Walk, SkipsWhatNoReportHolds) {
  constexpr std::size_t fits = QFILE_ITR_LONGEST_PATH - 15;  // "\\server\share\" comes before the name
  const auto tree = [](std::size_t length, const char* kind) {
    const std::string name(length / 3 - 1, '\x01');
    return "0 " + name + std::string(length - 3 * name.size(), 'n') + kind + ", 1 f . 0";
  };
  for (const auto& [beyond, kind, yielded, files, directories] : {std::tuple{0U, " . 0", 1U, 0U, 0U},
                                                                  {1U, " . 0", 0U, 1U, 0U},
                                                                  {0U, " = 1", 1U, 1U, 0U},
                                                                  {1U, " = 1", 0U, 0U, 1U}}) {
    const tree_provider disk(tree(fits + beyond, kind));
    walked got;
    EXPECT_EQ(logged(QLOG_PROG, [&] { got = walk(tree_provider::root, 15); }).size() > 400, beyond + files != 0);
    EXPECT_EQ(got.entries.size(), yielded);
    EXPECT_EQ(got.left_out.files, files);
    EXPECT_EQ(got.left_out.directories, directories);
  }
}

TEST(WalkLinks, PlaceholdersAreNone) {
  std::string tree;
  for (int from = 0; from < 40; ++from) tree += std::to_string(from) + " n ~ " + std::to_string(from + 1) + ",";
  EXPECT_EQ(links(tree).size(), 40U);
  EXPECT_EQ(links(tree, QFILE_ITR_NO_REPARSE).size(), 1U);
}

// Ten links to the next one in each of seventeen folders make 10^16 paths; each directory is entered sixteen times.
TEST(WalkLinks, LatticesEnd) {
  std::string tree;
  for (int link = 0; link < 170; ++link) {
    tree += std::to_string(link / 10) + " " + std::to_string(link) + " @ " + std::to_string(link / 10 + 1) + ",";
  }
  EXPECT_EQ(links(tree).size(), 10U + 10U * 10U + 15U * 16U * 10U);
}

}  // namespace
