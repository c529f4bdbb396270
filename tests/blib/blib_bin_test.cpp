// Opening images: what is one, what their headers say, and ranges of the file.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "blib/images.h"
#include "cfg/cfg.h"

namespace {

constexpr std::uint64_t kStrict = 0x1000;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

class StrictMode {
 public:
  explicit StrictMode(bool on) { cfg_CustomerConfig().store(on ? kStrict : 0); }
  StrictMode(const StrictMode&) = delete;
  StrictMode& operator=(const StrictMode&) = delete;
  ~StrictMode() { cfg_CustomerConfig().store(0); }
};

const char* table_of(const blib_bin& image) {
  if (blib_bin_section_count(&image) != 0) return "yes";
  return image.section_table.data() != nullptr ? "none" : "no";
}

TEST_F(Images, OpenAsTheirHeadersDeserve) {
  const auto rows = fixture_table("headers");
  ASSERT_GT(rows.size(), 50U);
  for (const auto& row : rows) {
    const std::string& file = row.at("file");
    SCOPED_TRACE(file);
    for (const char* const mode : {"open", "strict"}) {
      if (row.at(mode) == "-") continue;
      const StrictMode strict(std::string(mode) == "strict");
      for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP}) {
        blib_bin* opened = nullptr;
        const qerr_t code = blib_bin_open(fixture_wide(file).c_str(), &opened, BLIB_READ | flags, 0);
        const BlibBinOwner image(opened);
        EXPECT_EQ(std::to_string(code), row.at(mode)) << mode << flags;
        if (image && row.at("section_table") != "-") {
          EXPECT_EQ(table_of(*image), row.at("section_table")) << flags;
        }
      }
    }
  }
}

TEST_F(Images, ArgumentsAreCheckedByPosition) {
  memory_file file(image_layout{}.build().bytes());
  blib_bin* image = nullptr;
  const std::u16string path = fixture_wide("images/exe32.exe");
  EXPECT_EQ(blib_bin_open_by_handle(nullptr, u"", &image, BLIB_READ, 0), QERR_ARG1);
  EXPECT_EQ(blib_bin_open(nullptr, &image, BLIB_READ, 0), QERR_ARG1);
  EXPECT_EQ(blib_bin_open(path.c_str(), nullptr, BLIB_READ, 0), QERR_ARG2);
  EXPECT_EQ(blib_bin_open_by_handle(&file, u"", nullptr, BLIB_READ, 0), QERR_ARG3);
  for (const std::uint32_t mode : {0U, 1U, 5U, 8U, BLIB_READ_WRITE, BLIB_READ_WRITE | BLIB_READ_NOT_MAP}) {
    EXPECT_EQ(blib_bin_open_by_handle(&file, u"", &image, mode, 0), QERR_ARG4) << mode;
  }
  EXPECT_EQ(blib_bin_open(path.c_str(), &image, BLIB_READ_WRITE, 0), QERR_ARG4);
  EXPECT_EQ(blib_bin_open((path + u"x").c_str(), &image, BLIB_READ, 0), QERR_NOT_FOUND);
  EXPECT_EQ(image, nullptr);
  EXPECT_EQ(blib_bin_close(nullptr), QERR_OK);
  EXPECT_EQ(blib_bin_close_by_handle(nullptr), QERR_OK);
}

TEST_F(Images, FailuresOfTheFileComeBackAndLeaveNothing) {
  const std::vector<std::byte> bytes = image_layout{}.build().bytes();
  struct {
    const char* what;
    qerr_t memory_file::*fault;
    qerr_t injected;
    std::uint32_t flags;
    qerr_t expected;
  } const cases[] = {
      {"size", &memory_file::size_fault, QERR_IO, 0, QERR_IO},
      {"view", &memory_file::view_fault, QERR_PERMISSION, 0, QERR_PERMISSION},
      {"a page that cannot be read", &memory_file::view_fault, QERR_BAD_ADDRESS, 0, QERR_BAD_IMAGE},
      {"read", &memory_file::read_fault, QERR_IO, BLIB_READ_NOT_MAP, QERR_IO},
      {"seek", &memory_file::seek_fault, QERR_INVALID, BLIB_READ_NOT_MAP, QERR_INVALID},
  };
  for (const auto& one : cases) {
    memory_file file(bytes);
    file.*one.fault = one.injected;
    BlibBinByHandleOwner image;
    EXPECT_EQ(open(file, image, BLIB_READ | one.flags), one.expected) << one.what;
  }
  // Headers behind the view come from range reads, whose failure is the result.
  for (const std::uint32_t reads_before : {0U, 1U}) {
    memory_file file(fixture_bytes("images/headers/headers_past_view_32.exe"));
    file.read_fault = QERR_IO;
    file.reads_before_fault = reads_before;
    EXPECT_EQ(open(file), QERR_IO) << reads_before;
  }
}

TEST_F(Images, FileThatShrinksWhileItIsOpened) {
  for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP, BLIB_WHOLE_FILE}) {
    memory_file file(image_layout{}.build().bytes());
    file.shrinks_after_size = true;
    BlibBinByHandleOwner image;
    EXPECT_EQ(open(file, image, BLIB_READ | flags), QERR_BAD_IMAGE) << flags;
  }
}

TEST_F(Images, LargerThan4GiBAreBoundedByTheirRealSize) {
  for (const std::uint64_t size : {kFourGiB, kFourGiB + 10, kFourGiB * 3 + 100}) {
    memory_file file(image_layout{}.build().bytes());
    file.size_bytes = size;
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK) << size;
    EXPECT_EQ(image->file_size, static_cast<std::uint32_t>(size));
    EXPECT_EQ(image->view.size(), 8192U);
    EXPECT_EQ(blib_bin_section_count(image.get()), 1U);
    // The last bytes that 32 bits reach, and on over their end.
    file.put(kFourGiB - 2, {std::byte{1}, std::byte{2}, std::byte{3}});
    std::array<std::byte, 4> read{};
    EXPECT_EQ(blib_bin_get_buf(image.get(), read.data(), 0xFFFFFFFE, 4), QERR_OK);
    EXPECT_EQ(read[0], std::byte{1});
    EXPECT_EQ(read[2], std::byte{3});
  }
}

TEST_F(Images, RangeReadsGiveWhatExists) {
  memory_file file(image_layout{}.build().bytes());
  file.most_read = 3;  // storage that answers in parts
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(file, image), QERR_OK);
  std::array<std::byte, 8> read{};
  read.fill(std::byte{0xEE});
  const auto size = static_cast<std::uint32_t>(file.size_bytes);
  EXPECT_EQ(blib_bin_get_buf(image.get(), read.data(), size - 4, 8), QERR_OK);
  EXPECT_EQ(read[3], std::byte{0});
  EXPECT_EQ(read[4], std::byte{0xEE}) << "past the end nothing is written";
  EXPECT_EQ(blib_bin_get_buf(image.get(), read.data(), 0, 8), QERR_OK);
  EXPECT_EQ(read[0], std::byte{'M'});
  EXPECT_EQ(read[7], std::byte{0});
  EXPECT_EQ(blib_bin_get_buf(image.get(), read.data(), 0xFFFFFFFF, 8), QERR_OK);
  file.read_fault = QERR_IO;
  file.reads_before_fault = 1;
  EXPECT_EQ(blib_bin_get_buf(image.get(), read.data(), 0, 8), QERR_IO) << "a read that fails half-way";
}

TEST_F(Images, WholeFileIsViewedWhenAsked) {
  memory_file file(image_layout{}.build().size(20000).bytes());
  for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP}) {
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image, BLIB_READ | BLIB_WHOLE_FILE | flags), QERR_OK);
    EXPECT_EQ(image->view.size(), 20000U);
    ASSERT_EQ(open(file, image, BLIB_READ | flags), QERR_OK);
    EXPECT_EQ(image->view.size(), 8192U);
  }
}

TEST_F(Images, DirectoriesFollowTheHeadersWidth) {
  for (const bool wide : {false, true}) {
    const image_layout layout{wide};
    byte_builder bytes = layout.build();
    bytes.u32(layout.directory(4), 0x11223344).u32(layout.directory(4) + 4, 0x55667788);
    memory_file file(bytes.bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    EXPECT_EQ(image->is_64bit, wide);
    std::uint32_t address = 0;
    std::uint32_t size = 0;
    EXPECT_EQ(blib_bin_get_directory(image.get(), BLIB_DIRECTORY_SECURITY, &address, &size), QERR_OK);
    EXPECT_EQ(address, 0x11223344U);
    EXPECT_EQ(size, 0x55667788U);
    blib_section section{};
    ASSERT_TRUE(blib_bin_get_section(image.get(), 0, &section));
    EXPECT_STREQ(section.name, ".rsrc");
    EXPECT_EQ(section.virtual_address, image_layout::section_rva);
    EXPECT_EQ(section.raw_pointer, image_layout::section_offset);
    EXPECT_FALSE(blib_bin_get_section(image.get(), 1, &section));
  }
  // A copy of 248 bytes ends before the last two directories of PE32+.
  memory_file file(fixture_bytes("images/headers/headers_past_view_64.exe"));
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(file, image), QERR_OK);
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  EXPECT_EQ(blib_bin_get_directory(image.get(), 13, &address, &size), QERR_OK);
  EXPECT_EQ(blib_bin_get_directory(image.get(), 14, &address, &size), QERR_NOT_FOUND);
  EXPECT_EQ(blib_bin_get_directory(image.get(), 0xFFFFFFFF, &address, &size), QERR_NOT_FOUND);
}

TEST_F(Images, StrictModeSeesSectionsBehindTheView) {
  // The table's second header crosses the end of the view; its raw data reaches past the end of the file.
  image_layout layout;
  byte_builder bytes = layout.build();
  bytes.u16(image_layout::section_count, 2).u16(image_layout::optional_size, 8192 - 40 - 8 - (image_layout::nt + 24));
  const std::size_t second = 8192 - 8;
  bytes.size(20000).u32(second + 16, 0x1000).u32(second + 20, 20000 - 0xFFF);
  memory_file file(bytes.bytes());
  EXPECT_EQ(open(file), QERR_OK);
  const StrictMode strict(true);
  EXPECT_EQ(open(file), QERR_BAD_IMAGE);
  bytes.u32(second + 20, 20000 - 0x1000);
  memory_file fitting(bytes.bytes());
  EXPECT_EQ(open(fitting), QERR_OK);
}

TEST_F(Images, AnyExecutableIsOneForTheCoarseTest) {
  struct {
    std::string_view bytes;
    std::uint32_t expected;
  } const cases[] = {{"MZ", 1}, {"MZ\x90 and more", 1}, {"ZM", 0}, {"M", 0}, {"", 0}, {"#!/bin/sh", 0}};
  for (const auto& one : cases) {
    memory_file file(byte_builder().text(0, one.bytes).bytes());
    EXPECT_EQ(blib_bin_is_16bit_by_handle(&file), one.expected) << one.bytes;
  }
  for (const auto fault : {&memory_file::size_fault, &memory_file::view_fault}) {
    memory_file file(byte_builder().text(0, "MZ").bytes());
    file.*fault = QERR_BAD_ADDRESS;
    EXPECT_EQ(blib_bin_is_16bit_by_handle(&file), 0U);
  }
  memory_file shrinking(byte_builder().text(0, "MZ").size(5000).bytes());
  shrinking.shrinks_after_size = true;
  EXPECT_EQ(blib_bin_is_16bit_by_handle(&shrinking), 1U);
}

}  // namespace
