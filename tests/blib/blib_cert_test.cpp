// The attribute certificate table: which entries come out, and with which code the walk ends.
#include "blib/blib_cert.h"

#include <gtest/gtest.h>

#include <string>

#include "blib/images.h"

namespace {

// The code of reading the table, and its entries.
struct Outcome {
  qerr_t code = 0;
  std::string entries = "-";
  BlibAuthenticodeOwner list;
};

Outcome read_table(blib_bin& image) {
  Outcome out;
  blib_authenticode_list* list = nullptr;
  out.code = blib_bin_get_authenticode_signature_buf_alloc(&image, &list);
  out.list.reset(list);
  EXPECT_EQ(list != nullptr, out.code == QERR_OK);
  if (list != nullptr) out.entries.clear();
  for (std::uint32_t i = 0; list != nullptr && i < list->count; ++i) {
    char one[32];
    (void)std::snprintf(one, sizeof one, "%s%u:%04x:%04x", i == 0 ? "" : ",", list->entries[i].length,
                        list->entries[i].revision, list->entries[i].type);
    out.entries += one;
  }
  return out;
}

byte_builder entry(std::uint32_t length, std::string_view content = {}) {
  return byte_builder().u32(0, length).u16(4, 0x200).u16(6, 2).text(8, content);
}

// An image whose certificate table lies at `address`.
memory_file with_table(const byte_builder& table, std::uint32_t size, std::uint32_t address = 0xC00) {
  const image_layout layout;
  memory_file file(layout.build().u32(layout.directory(4), address).u32(layout.directory(4) + 4, size).bytes());
  file.put(address, table.bytes());
  return file;
}

TEST_F(Images, YieldTheEntriesOfTheirCertificateTable) {
  each_row("cert_table", [](const fixture_row& row, memory_file&, blib_bin& image) {
    const Outcome found = read_table(image);
    EXPECT_EQ(std::to_string(found.code), row.at("code"));
    EXPECT_EQ(found.entries, row.at("entries"));
  });
}

TEST_F(Images, EntryThatCannotBeReadIsEmptyAndTheOthersCome) {
  const byte_builder table = entry(16, "content1").u32(16, 16).u16(20, 0x200).u16(22, 2).text(24, "content2");
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
    memory_file file = with_table(table, 32);
    const auto image = opened(file);
    file.read_fault = QERR_IO;
    file.reads_before_fault = one.reads_before;
    const Outcome found = read_table(*image);
    EXPECT_EQ(found.code, one.code) << one.reads_before;
    EXPECT_EQ(found.entries, one.entries) << one.reads_before;
    if (one.reads_before < 6) continue;
    EXPECT_EQ(std::memcmp(found.list->entries[1].buffer, "content2", 8), 0);
  }
}

// Of a long entry no more is read than the signature that it begins with, and nothing of a signature over 16 MiB.
TEST_F(Images, LongEntriesAreReadAsFarAsTheirSignatureGoes) {
  constexpr std::uint32_t length = 100U << 20;
  const std::pair<std::string_view, const char*> cases[] = {
      // Header of the signature, and its entry; of open length: as long as the entry.
      {"\x30\x03\x02\x01\x01", "5:0200:0002"},
      {"\x30\x83\xff\xff\xfb", "16777216:0200:0002"},
      {"\x30\x83\xff\xff\xfc", "0:0000:0000"},
      {"\x30\x84\x7f\xff\xff\xff", "0:0000:0000"},
      {"\x30\x80", "0:0000:0000"},
  };
  for (const auto& [header, entries] : cases) {
    memory_file file = with_table(entry(length, header), length);
    file.size_bytes = 0xC00 + std::uint64_t{length};
    const Outcome found = read_table(*opened(file));
    EXPECT_EQ(found.code, QERR_OK);
    EXPECT_EQ(found.entries, entries) << header;
  }
}

TEST_F(Images, EntryOfOneByteIsReadWhereItIs) {
  memory_file file = with_table(entry(9, "x").size(16), 16);
  EXPECT_EQ(static_cast<char>(*read_table(*opened(file)).list->entries[0].buffer), 'x');
}

TEST_F(Images, TableAtTheEndOf32BitOffsets) {
  for (const std::uint64_t more : {std::uint64_t{0}, std::uint64_t{1} << 33}) {
    memory_file file = with_table(entry(24), 0xFFFFFFFF, 0xFFFFFFF8);
    file.size_bytes += more;
    EXPECT_EQ(read_table(*opened(file)).entries, "0:0200:0002")
        << "content beyond 32 bits is not there, nor does it wrap";
  }
}

TEST_F(Images, HugeClaimsTakeNoMemoryAndTinyEntriesNoTime) {
  memory_file claim = with_table(entry(0xFFFFFFF0).size(100), 0xFFFFFFFF);
  EXPECT_EQ(read_table(*opened(claim)).entries, "92:0200:0002");
  byte_builder tiny;
  for (std::size_t i = 0; i < 100000; ++i) tiny.u32(8 * i, 1);
  memory_file many = with_table(tiny, 800000);
  EXPECT_EQ(read_table(*opened(many)).list->count, BLIB_CERT_MOST_ENTRIES);
}

}  // namespace
