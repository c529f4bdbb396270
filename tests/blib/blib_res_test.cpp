// The resource walk: what it visits, how it ends, and that it does end.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "blib/blib_res.h"
#include "blib/images.h"

namespace {

constexpr std::uint32_t kDir = 0x80000000;

struct Visits {
  std::vector<std::pair<std::uint32_t, std::string>> seen;  // language and bytes
  std::uint64_t count = 0;
  bool stop = false;
  qerr_t answer = QERR_OK;
};

qerr_t visit(std::uint32_t type_id, const void* data, std::uint32_t size, std::uint32_t language_id,
             std::uint32_t* stop, void* context, std::size_t context_size) {
  EXPECT_EQ(type_id, BLIB_RES_VERSION);
  EXPECT_EQ(context_size, sizeof(Visits));
  EXPECT_LE(size, BLIB_RES_MOST_BYTES);
  EXPECT_EQ(*stop, 0U);
  auto& visits = *static_cast<Visits*>(context);
  if (++visits.count <= 10) visits.seen.emplace_back(language_id, std::string(static_cast<const char*>(data), size));
  if (visits.stop) *stop = 1;
  return visits.answer;
}

qerr_t walk(blib_bin* image, Visits& visits) {
  blib_res_section section{};
  const qerr_t code = blib_res_get_section(image, &section);
  if (code != QERR_OK) return code;
  std::uint32_t stop = 7;
  const qerr_t walked = blib_res_walk(image, &section, BLIB_RES_VERSION, visit, &stop, &visits, sizeof visits);
  EXPECT_EQ(stop, visits.stop && visits.count != 0 ? 1U : 0U);
  return walked;
}

// One version resource in two languages; offsets in the tree: names 0x100, languages 0x200, data entries 0x300, 0x310.
// The section begins at `root` in the file: in the image's view by default, or behind it.
constexpr std::size_t kBehindView = 0x4000;

byte_builder two_languages(std::size_t root = image_layout::section_offset) {
  byte_builder out = image_layout{}.build();
  out.u32(image_layout{}.sections() + 20, root).size(root + image_layout::section_size);
  put_directory(out, root, {{3, kDir | 0x180}, {16, 0x300}, {16, kDir | 0x100}, {16, kDir | 0x180}});
  put_directory(out, root + 0x100, {{1, 0x300}, {2, kDir | 0x200}});
  put_directory(out, root + 0x200, {{0x10407, 0x300}, {0x409, 0x310}});
  out.u32(root + 0x300, image_layout::section_rva + 0x400).u32(root + 0x304, 5).text(root + 0x400, "first");
  out.u32(root + 0x310, image_layout::section_rva + 0x410).u32(root + 0x314, 6).text(root + 0x410, "second");
  return out;
}

TEST_F(Images, ResourceTreesOfEveryShapeEnd) {
  const auto rows = fixture_table("resource_trees");
  ASSERT_GT(rows.size(), 25U);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.at("file"));
    blib_bin* opened = nullptr;
    ASSERT_EQ(blib_bin_open(fixture_wide(row.at("file")).c_str(), &opened, BLIB_READ, 0), QERR_OK);
    const BlibBinOwner image(opened);
    blib_res_section section{};
    EXPECT_EQ(std::to_string(blib_res_get_section(image.get(), &section)), row.at("section"));
    Visits visits;
    const qerr_t code = walk(image.get(), visits);
    if (row.at("walk") != "-") {
      EXPECT_EQ(std::to_string(code), row.at("walk"));
    }
    if (row.at("seen") != "-") {
      EXPECT_EQ(std::to_string(visits.count), row.at("seen"));
    }
  }
}

TEST_F(Images, BothLanguagesAreVisitedUnlessTheVisitorEndsIt) {
  memory_file file(two_languages().bytes());
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(file, image), QERR_OK);
  Visits all;
  EXPECT_EQ(walk(image.get(), all), QERR_OK);
  using Seen = std::vector<std::pair<std::uint32_t, std::string>>;
  EXPECT_EQ(all.seen, (Seen{{0x0407, "first"}, {0x409, "second"}}));
  Visits stopped;
  stopped.stop = true;
  EXPECT_EQ(walk(image.get(), stopped), QERR_OK);
  EXPECT_EQ(stopped.count, 1U);
  Visits failed;
  failed.answer = 77;
  EXPECT_EQ(walk(image.get(), failed), 77U);
  EXPECT_EQ(failed.count, 1U);
}

TEST_F(Images, ResourcesAreCutAndNeverLeaveTheFile) {
  struct {
    const char* what;
    std::uint32_t rva;
    std::uint32_t size;
    std::uint32_t length;
    std::string_view begins;
  } const cases[] = {
      {"empty", 0x1400, 0, 0, ""},
      {"just below the cut", 0x1400, 7999, 7999, "first"},
      {"at the cut", 0x1400, 8000, 8000, "first"},
      {"above it", 0x1400, 8001, 8000, "first"},
      {"negative", 0x1400, 0xFFFFFFFF, 8000, "first"},
      {"below the section, in the headers", 0x1000 - 0x400, 2, 2, "MZ"},
      {"below the file", 0, 4, 4, {"\0\0\0\0", 4}},
      {"behind the file", 0x9000, 4, 4, {"\0\0\0\0", 4}},
      {"at the end of 32 bits", 0xFFFFFFFF, 4, 4, {"\0\0\0\0", 4}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    byte_builder bytes = two_languages();
    bytes.u32(image_layout::section_offset + 0x300, one.rva).u32(image_layout::section_offset + 0x304, one.size);
    memory_file file(bytes.bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    Visits visits;
    ASSERT_EQ(walk(image.get(), visits), QERR_OK);
    ASSERT_EQ(visits.count, 2U);
    EXPECT_EQ(visits.seen[0].second.size(), one.length);
    EXPECT_TRUE(visits.seen[0].second.starts_with(one.begins));
    EXPECT_EQ(visits.seen[1].second, "second");
  }
}

TEST_F(Images, ReadThatFailsEndsTheWalk) {
  for (const std::uint32_t reads_before : {0U, 1U}) {
    byte_builder bytes = two_languages(kBehindView).size(40000);
    bytes.u32(kBehindView + 0x300, image_layout::section_rva + 9000);  // outside the first read
    memory_file file(bytes.bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    file.read_fault = QERR_IO;
    file.reads_before_fault = reads_before;
    Visits visits;
    EXPECT_EQ(walk(image.get(), visits), QERR_IO) << reads_before;
    EXPECT_EQ(visits.count, 0U);
  }
}

// `count` types, each leading to one directory of `count` names, each of these to one directory of `count` languages,
// each of these to one block of 8000 bytes: far more paths than the file has bytes.
byte_builder resource_bomb(std::uint16_t count) {
  const std::uint32_t level = 16 + 8U * count;
  const std::size_t root = image_layout::section_offset;
  byte_builder out = image_layout{}.build();
  out.size(root + 3 * level + 16).u32(root + 3 * level, image_layout::section_rva).u32(root + 3 * level + 4, 8000);
  out.u32(image_layout{}.sections() + 8, 3 * level + 16).u32(image_layout{}.sections() + 16, 3 * level + 16);
  for (std::uint32_t depth = 0; depth < 3; ++depth) {
    const std::uint32_t below = (depth + 1) * level | (depth < 2 ? kDir : 0);
    out.u16(root + depth * level + 14, count);
    for (std::uint32_t i = 0; i < count; ++i) {
      out.u32(root + depth * level + 16 + 8 * i, 16 + i).u32(root + depth * level + 20 + 8 * i, below);
    }
  }
  return out;
}

TEST_F(Images, WalkCostsAFewTimesTheFileAtMost) {
  for (const std::uint16_t count : {std::uint16_t{200}, std::uint16_t{65535}}) {
    memory_file file(resource_bomb(count).bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    Visits visits;
    EXPECT_EQ(walk(image.get(), visits), QERR_OVERFLOW) << count;
    EXPECT_LE(file.bytes_read, 4 * file.size_bytes + 262144);
    EXPECT_LE(visits.count * 16, 4 * file.size_bytes + 262144);
  }
}

TEST_F(Images, DirectoryHoldsOnlyWhatTheFileHas) {
  byte_builder bytes = two_languages();
  constexpr std::uint32_t last = image_layout::section_offset + image_layout::section_size - 28;
  bytes.u16(last + 12, 65535).u16(last + 14, 65535).u32(last + 16, 16).u32(last + 20, kDir).u32(last + 24, 9);
  memory_file file(bytes.bytes());
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(file, image), QERR_OK);
  blib_res_directory directory;
  ASSERT_EQ(blib_res_get_dir_entry(image.get(), last, &directory), QERR_OK);
  EXPECT_EQ(directory.count, 131070U);
  EXPECT_EQ(directory.entries.size(), 12U);
  EXPECT_EQ(directory.offset(0), kDir);
  EXPECT_EQ(directory.id(1), 9U);
  EXPECT_EQ(directory.offset(1), 0U);
  EXPECT_EQ(directory.id(131069), 0U);
  EXPECT_EQ(blib_res_get_dir_entry(image.get(), 0xFFFFFFFF, &directory), QERR_LOW_MEMORY) << "nothing there: empty";
  EXPECT_EQ(directory.count, 0U);
}

}  // namespace
