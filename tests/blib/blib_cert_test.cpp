// The attribute certificate table: which entries come out, and with which code the walk ends.
#include <gtest/gtest.h>

#include <string>

#include "blib/blib_cert.h"
#include "blib/images.h"

namespace {

using ListOwner = std::unique_ptr<blib_authenticode_list, FreeWith<blib_bin_free_authenticode_signature_buf>>;

qerr_t read_table(blib_bin* image, ListOwner& list) {
  blib_authenticode_list* made = nullptr;
  const qerr_t code = blib_bin_get_authenticode_signature_buf_alloc(image, &made);
  list.reset(made);
  EXPECT_EQ(list != nullptr, code == QERR_OK);
  return code;
}

std::string text_of(const blib_authenticode_list& list) {
  std::string out;
  for (std::uint32_t i = 0; i < list.count; ++i) {
    char one[32];
    (void)std::snprintf(one, sizeof one, "%s%u:%04x:%04x", i == 0 ? "" : ",", list.entries[i].length,
                        list.entries[i].revision, list.entries[i].type);
    out += one;
  }
  return out;
}

// An image whose certificate table lies at `address`.
memory_file with_table(std::uint32_t address, std::uint32_t size, const std::vector<std::byte>& table) {
  const image_layout layout;
  memory_file file(layout.build().u32(layout.directory(4), address).u32(layout.directory(4) + 4, size).bytes());
  file.put(address, table);
  return file;
}

constexpr std::uint32_t kTable = 0xC00;

TEST_F(Images, YieldTheEntriesOfTheirCertificateTable) {
  const auto rows = fixture_table("cert_table");
  ASSERT_GT(rows.size(), 50U);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.at("file"));
    blib_bin* opened = nullptr;
    ASSERT_EQ(blib_bin_open(fixture_wide(row.at("file")).c_str(), &opened, BLIB_READ, 0), QERR_OK);
    const BlibBinOwner image(opened);
    ListOwner list;
    EXPECT_EQ(std::to_string(read_table(image.get(), list)), row.at("code"));
    EXPECT_EQ(list ? text_of(*list) : "-", row.at("entries"));
  }
}

TEST_F(Images, CertificateIteratorTellsHowItEnds) {
  byte_builder table;
  table.u32(0, 24).u16(4, 0x200).u16(6, 2).u32(24, 16).u16(28, 0x200).u16(30, 2).size(40);
  struct {
    std::uint32_t size;
    std::uint32_t first_length;
    qerr_t next;
  } const cases[] = {
      {40, 24, QERR_OK},       {40, 17, QERR_OK},         // rounded up to 24
      {24, 24, QERR_END},      {30, 24, QERR_NOT_FOUND},  // the raw lengths exceed the table
      {20, 17, QERR_OVERFLOW},                            // the rounded length does
      {40, 0, QERR_NOT_FOUND},
  };
  for (const auto& one : cases) {
    table.u32(0, one.first_length);
    memory_file file = with_table(kTable, one.size, table.bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    blib_cert_itr iterator;
    EXPECT_EQ(blib_bin_cert_itr_next(&iterator, image.get(), 8), QERR_NOT_PERMITTED) << "before init";
    EXPECT_EQ(blib_bin_cert_itr_init(&iterator, image.get()), QERR_OK);
    EXPECT_EQ(blib_bin_cert_itr_next(&iterator, image.get(), one.first_length), one.next)
        << one.size << ' ' << one.first_length;
    EXPECT_EQ(blib_bin_cert_itr_init(nullptr, image.get()), QERR_NOT_FOUND);
    EXPECT_EQ(blib_bin_cert_itr_init(&iterator, nullptr), QERR_NOT_FOUND);
  }
}

TEST_F(Images, EntryThatCannotBeReadIsEmptyAndTheOthersCome) {
  byte_builder table;
  table.u32(0, 16)
      .u16(4, 0x200)
      .u16(6, 2)
      .text(8, "content1")
      .u32(16, 16)
      .u16(20, 0x200)
      .u16(22, 2)
      .text(24, "content2");
  // Reads: two headers for the count, the same again for their places, then the contents.
  struct {
    std::uint32_t reads_before;
    qerr_t code;
    const char* entries;
  } const cases[] = {
      {0, QERR_NOT_FOUND, "-"},  // no count without the first header
      {2, QERR_IO, "-"},
      {3, QERR_IO, "-"},
      {4, QERR_OK, "0:0000:0000,8:0200:0002"},
      {5, QERR_OK, "8:0200:0002,0:0000:0000"},
      {6, QERR_OK, "8:0200:0002,8:0200:0002"},
  };
  for (const auto& one : cases) {
    memory_file file = with_table(kTable, 32, table.bytes());
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    file.read_fault = QERR_IO;
    file.reads_before_fault = one.reads_before;
    ListOwner list;
    EXPECT_EQ(read_table(image.get(), list), one.code) << one.reads_before;
    EXPECT_EQ(list ? text_of(*list) : "-", one.entries) << one.reads_before;
  }
  memory_file file = with_table(kTable, 32, table.bytes());
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(file, image), QERR_OK);
  ListOwner list;
  ASSERT_EQ(read_table(image.get(), list), QERR_OK);
  EXPECT_EQ(std::memcmp(list->entries[1].buffer, "content2", 8), 0);
  blib_bin_free_authenticode_signature_buf(nullptr);
}

// Of a long entry no more is read than the signature that it begins with, and nothing of a signature over 16 MiB.
TEST_F(Images, LongEntriesAreReadAsFarAsTheirSignatureGoes) {
  constexpr std::uint32_t entry = 100U << 20;
  struct {
    const char* header;  // of the signature
    std::size_t size;
    const char* entries;
  } const cases[] = {
      {"\x30\x03\x02\x01\x01", 5, "5:0200:0002"},
      {"\x30\x83\xff\xff\xfb", 5, "16777216:0200:0002"},
      {"\x30\x83\xff\xff\xfc", 5, "0:0000:0000"},
      {"\x30\x84\x7f\xff\xff\xff", 6, "0:0000:0000"},
      {"\x30\x80", 2, "0:0000:0000"},  // of open length: as long as the entry
  };
  for (const auto& one : cases) {
    byte_builder table;
    table.u32(0, entry).u16(4, 0x200).u16(6, 2).text(8, {one.header, one.size});
    memory_file file = with_table(kTable, entry, table.bytes());
    file.size_bytes = kTable + std::uint64_t{entry};
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    ListOwner list;
    EXPECT_EQ(read_table(image.get(), list), QERR_OK);
    EXPECT_EQ(list ? text_of(*list) : "-", one.entries) << one.header;
  }
}

TEST_F(Images, TableAtTheEndOf32BitOffsets) {
  constexpr std::uint32_t last = 0xFFFFFFF8;
  for (const std::uint64_t more : {std::uint64_t{0}, std::uint64_t{1} << 33}) {
    memory_file file = with_table(last, 0xFFFFFFFF, byte_builder().u32(0, 24).u16(4, 0x200).u16(6, 2).bytes());
    file.size_bytes += more;
    BlibBinByHandleOwner image;
    ASSERT_EQ(open(file, image), QERR_OK);
    ListOwner list;
    ASSERT_EQ(read_table(image.get(), list), QERR_OK);
    EXPECT_EQ(text_of(*list), "0:0200:0002") << "content beyond 32 bits is not there, nor does its offset wrap";
  }
}

TEST_F(Images, HugeClaimsTakeNoMemoryAndTinyEntriesNoTime) {
  memory_file claim = with_table(kTable, 0xFFFFFFFF, byte_builder().u32(0, 0xFFFFFFF0).u16(6, 2).size(100).bytes());
  BlibBinByHandleOwner image;
  ASSERT_EQ(open(claim, image), QERR_OK);
  ListOwner list;
  EXPECT_EQ(read_table(image.get(), list), QERR_OK);
  EXPECT_EQ(list->entries[0].length, 92U);

  byte_builder tiny;
  for (std::size_t i = 0; i < 100000; ++i) tiny.u32(8 * i, 1);
  memory_file many = with_table(kTable, 800000, tiny.bytes());
  ASSERT_EQ(open(many, image), QERR_OK);
  ASSERT_EQ(read_table(image.get(), list), QERR_OK);
  EXPECT_EQ(list->count, BLIB_CERT_MOST_ENTRIES);
}

}  // namespace
