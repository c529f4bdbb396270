// The resource walk: what it visits, how it ends, and that it does end.
#include "blib/blib_res.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "blib/images.h"

namespace {

constexpr std::uint32_t kDir = 0x80000000;
using Seen = std::vector<std::pair<std::uint32_t, std::string>>;  // language and bytes

struct Visits {
  Seen seen;
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

qerr_t walk(blib_bin& image, Visits& visits) {
  blib_res_section section{};
  const qerr_t code = blib_res_get_section(&image, &section);
  if (code != QERR_OK) return code;
  std::uint32_t stop = 7;
  const qerr_t walked = blib_res_walk(&image, &section, BLIB_RES_VERSION, visit, &stop, &visits, sizeof visits);
  EXPECT_EQ(stop, visits.stop && visits.count != 0 ? 1U : 0U);
  return walked;
}

// One version resource in two languages; offsets in the tree: names 0x100, languages 0x200, data entries 0x300, 0x310.
// The section begins at `root` in the file: in the image's view by default, or behind it.
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

// Among them are trees whose directories lead to themselves or all to one child, with far more paths than the file has
// bytes: a walk costs a few times the file at most.
TEST_F(Images, ResourceTreesOfEveryShapeEnd) {
  each_row("resource_trees", [](const fixture_row& row, memory_file& file, blib_bin& image) {
    Visits visits;
    EXPECT_EQ(std::to_string(walk(image, visits)), row.at("walk"));
    EXPECT_EQ(row.at("seen") == "-" ? "-" : std::to_string(visits.count), row.at("seen"));
    EXPECT_LE(file.bytes_read + std::uint64_t{1024} * file.reads, 4 * file.size_bytes + 262144);
    EXPECT_LE(visits.count * 128, 4 * file.size_bytes + 262144);
    Visits stopped;
    stopped.stop = true;
    (void)walk(image, stopped);
    EXPECT_LE(stopped.count, 1U);
  });
}

TEST_F(Images, BothLanguagesAreVisitedUnlessTheVisitorFails) {
  memory_file file(two_languages().bytes());
  const auto image = opened(file);
  Visits all;
  EXPECT_EQ(walk(*image, all), QERR_OK);
  EXPECT_EQ(all.seen, (Seen{{0x0407, "first"}, {0x409, "second"}}));
  Visits failed;
  failed.answer = 77;
  EXPECT_EQ(walk(*image, failed), 77U);
  EXPECT_EQ(failed.count, 1U);
}

TEST_F(Images, ResourcesAreCutAndNeverLeaveTheFile) {
  for (const auto& row : fixture_rows("blib/resource_data.tsv")) {
    SCOPED_TRACE(row.at("what"));
    byte_builder bytes = two_languages();
    bytes.u32(image_layout::section_offset + 0x300, row.number("rva"));
    bytes.u32(image_layout::section_offset + 0x304, row.number("size"));
    memory_file file(bytes.bytes());
    Visits visits;
    EXPECT_EQ(walk(*opened(file), visits), QERR_OK);
    ASSERT_EQ(visits.count, 2U);
    EXPECT_EQ(visits.seen[0].second.size(), row.number("length"));
    EXPECT_TRUE(visits.seen[0].second.starts_with(row.octets("begins")));
    EXPECT_EQ(visits.seen[1].second, "second");
  }
}

TEST_F(Images, ReadThatFailsEndsTheWalk) {
  constexpr std::size_t behind_view = 0x4000;
  byte_builder bytes = two_languages(behind_view).size(40000);
  bytes.u32(behind_view + 0x300, image_layout::section_rva + 9000);  // outside the first read
  for (const std::uint32_t reads_before : {0U, 1U}) {
    memory_file file(bytes.bytes());
    const auto image = opened(file);
    file.read_fault = QERR_IO;
    file.reads_before_fault = reads_before;
    Visits visits;
    EXPECT_EQ(walk(*image, visits), QERR_IO) << reads_before;
    EXPECT_EQ(visits.count, 0U);
  }
}

TEST_F(Images, DirectoryHoldsOnlyWhatTheFileHas) {
  byte_builder bytes = two_languages();
  constexpr std::uint32_t last = image_layout::section_offset + image_layout::section_size - 28;
  bytes.u16(last + 12, 65535).u16(last + 14, 65535).u32(last + 16, 16).u32(last + 20, kDir).u32(last + 24, 9);
  memory_file file(bytes.bytes());
  const auto image = opened(file);
  blib_res_directory directory;
  ASSERT_EQ(blib_res_get_dir_entry(image.get(), last, &directory), QERR_OK);
  EXPECT_EQ(directory.count, 131070U);
  EXPECT_EQ(directory.entries.size(), 12U);
  EXPECT_EQ(directory.id(1), 9U);
  EXPECT_EQ(directory.offset(1), 0U);
  EXPECT_EQ(directory.id(131069), 0U);
  EXPECT_EQ(blib_res_get_dir_entry(image.get(), 0xFFFFFFFF, &directory), QERR_LOW_MEMORY) << "nothing there: empty";
}

}  // namespace
