// Opening images: what is one, what their headers say, and ranges of the file.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "blib/blib_bin_16bit.h"
#include "blib/blib_cert.h"
#include "blib/blib_res.h"
#include "blib/images.h"
#include "cfg/cfg.h"

namespace {

constexpr std::uint64_t kStrict = 0x1000;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

const char* table_of(const blib_bin& image) {
  if (blib_bin_section_count(&image) != 0) return "yes";
  return image.section_table.data() != nullptr ? "none" : "no";
}

TEST_F(Images, OpenAsTheirHeadersDeserve) {
  for (const auto& row : fixture_table("headers")) {
    const std::string& file = row.at("file");
    for (const char* const mode : {"open", "strict"}) {
      cfg_CustomerConfig().store(mode[0] == 's' ? kStrict : 0);
      for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP}) {
        blib_bin* opened = nullptr;
        const qerr_t code = blib_bin_open(fixture_wide(file).c_str(), &opened, BLIB_READ | flags, 0);
        const BlibBinOwner image(opened);
        EXPECT_EQ(std::to_string(code), row.at(mode)) << file << mode << flags;
        EXPECT_TRUE(!image || row.at("section_table") == table_of(*image)) << file << flags;
      }
    }
  }
  cfg_CustomerConfig().store(0);
}

TEST_F(Images, AreReadOnlyAndThere) {
  memory_file file(image_layout{}.build().bytes());
  blib_bin* image = nullptr;
  for (const std::uint32_t mode : {0U, 1U, 5U, 8U, BLIB_READ_WRITE, BLIB_READ_WRITE | BLIB_READ_NOT_MAP}) {
    EXPECT_EQ(blib_bin_open_by_handle(&file, u"", &image, mode, 0), QERR_ARG4) << mode;
  }
  EXPECT_EQ(blib_bin_open(fixture_wide("images/there is none.exe").c_str(), &image, BLIB_READ, 0), QERR_NOT_FOUND);
  EXPECT_EQ(blib_bin_open_by_handle(nullptr, u"", &image, BLIB_READ, 0), QERR_ARG1);
  EXPECT_EQ(image, nullptr);
}

TEST_F(Images, FailuresOfTheFileComeBackAndLeaveNothing) {
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
  BlibBinByHandleOwner image;
  for (const auto& one : cases) {
    memory_file file(image_layout{}.build().bytes());
    file.*one.fault = one.injected;
    EXPECT_EQ(open(file, image, BLIB_READ | one.flags), one.expected) << one.what;
  }
  for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP, BLIB_WHOLE_FILE}) {
    memory_file shrinking(image_layout{}.build().bytes());
    shrinking.shrinks_after_size = true;
    EXPECT_EQ(open(shrinking, image, BLIB_READ | flags), QERR_BAD_IMAGE) << flags;
  }
  // Headers behind the view come from range reads, whose failure is the result.
  for (const std::uint32_t reads_before : {0U, 1U}) {
    memory_file file(fixture_bytes("images/headers/headers_past_view_32.exe"));
    file.read_fault = QERR_IO;
    file.reads_before_fault = reads_before;
    EXPECT_EQ(open(file, image), QERR_IO) << reads_before;
  }
}

TEST_F(Images, LargerThan4GiBAreBoundedByTheirRealSize) {
  for (const std::uint64_t size : {kFourGiB, kFourGiB * 3 + 100}) {
    memory_file file(image_layout{}.build().bytes());
    file.size_bytes = size;
    const auto image = opened(file);
    EXPECT_EQ(image->file_size, static_cast<std::uint32_t>(size));
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
  const auto image = opened(file);
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

TEST_F(Images, ViewIsThatOfTheHeadersOrOfAll) {
  memory_file file(image_layout{}.build().size(20000).bytes());
  for (const std::uint32_t flags : {0U, BLIB_READ_NOT_MAP}) {
    EXPECT_EQ(opened(file, BLIB_READ | BLIB_WHOLE_FILE | flags)->view.size(), 20000U);
    EXPECT_EQ(opened(file, BLIB_READ | flags)->view.size(), 8192U);
  }
  blib_section section{};
  EXPECT_TRUE(blib_bin_get_section(opened(file).get(), 0, &section));
  EXPECT_STREQ(section.name, ".rsrc");
  EXPECT_FALSE(blib_bin_get_section(opened(file).get(), 1, &section));
}

TEST_F(Images, CopyOfTheHeadersEndsBeforeTheLastDirectories) {
  memory_file file(fixture_bytes("images/headers/headers_past_view_64.exe"));
  const auto image = opened(file);
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  EXPECT_EQ(blib_bin_get_directory(image.get(), 13, &address, &size), QERR_OK);
  for (const std::uint32_t index : {14U, 0xFFFFFFFFU}) {
    EXPECT_EQ(blib_bin_get_directory(image.get(), index, &address, &size), QERR_NOT_FOUND);
  }
}

TEST_F(Images, AnyExecutableIsOneForTheCoarseTest) {
  const std::pair<std::string_view, std::uint32_t> cases[] = {
      {"MZ", 1}, {"MZ and more", 1}, {"ZM", 0}, {"M", 0}, {"", 0}};
  for (const auto& [bytes, expected] : cases) {
    memory_file file(bytes);
    EXPECT_EQ(blib_bin_is_16bit_by_handle(&file), expected) << bytes;
  }
  for (const auto fault : {&memory_file::size_fault, &memory_file::view_fault}) {
    memory_file file(std::string_view("MZ"));
    file.*fault = QERR_BAD_ADDRESS;
    EXPECT_EQ(blib_bin_is_16bit_by_handle(&file), 0U);
  }
}

TEST_F(Images, MissingArgumentIsReportedByPosition) {
  blib_bin image;
  std::uint32_t word = 0;
  EXPECT_EQ(blib_bin_open(nullptr, nullptr, BLIB_READ, 0), QERR_ARG1);
  EXPECT_EQ(blib_bin_open(u"x", nullptr, BLIB_READ, 0), QERR_ARG2);
  EXPECT_EQ(blib_bin_get_buf(nullptr, &word, 0, 1), QERR_ARG1);
  EXPECT_EQ(blib_bin_get_buf(&image, nullptr, 0, 1), QERR_ARG2);
  EXPECT_EQ(blib_bin_get_authenticode_table_alloc(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(blib_bin_get_authenticode_table_alloc(&image, nullptr), QERR_ARG2);
  EXPECT_EQ(blib_res_get_dir_entry(nullptr, 0, nullptr), QERR_ARG1);
  EXPECT_EQ(blib_res_get_dir_entry(&image, 0, nullptr), QERR_ARG3);
}

}  // namespace
