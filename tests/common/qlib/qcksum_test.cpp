#include "common/qlib/qcksum.h"

#include <cstring>

#include "support/fixture_table.h"
#include "support/memory_file.h"
#include "support/runtime.h"

namespace {

constexpr const char* SHA1_EMPTY = "da39a3ee5e6b4b0d3255bfef95601890afd80709";
constexpr const char* SHA1_270000 = "8bfd78bd617328c4aaf0464eab2afd79efba49fb";
constexpr const char* SHA1_600000 = "f3309429e310b64aac5531e848cf718f3ec63313";

std::string hex(const qcksum& record) {
  qchar text[129];
  EXPECT_EQ(qcksum_to_qstr(text, sizeof(text), &record), 0U);
  return qstr_to_utf8(text);
}

std::string hex(const std::uint8_t* bytes, std::size_t size) {
  qcksum record{0, static_cast<std::uint8_t>(size), {}};
  std::memcpy(record.value, bytes, size);
  return hex(record);
}

// More than two buffers, without a period that matches the buffer's size.
std::string pattern() {
  std::string bytes(600000, 0);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
  return bytes;
}

using Checksums = Runtime;

TEST_F(Checksums, ArgumentsAreChecked) {
  memory_file file("abc");
  qcksum record{99, 99, {}};
  EXPECT_EQ(qcksum_compute(8, &file, &record, &record, &record, 0, 0), QERR_ARG1);
  EXPECT_EQ(qcksum_compute(2, &file, nullptr, &record, &record, 0, 0), QERR_INVALID);
  EXPECT_EQ(qcksum_compute(6, &file, &record, &record, nullptr, 0, 0), QERR_INVALID);
  EXPECT_EQ(record.type, 99);
}

// What a pass covers, what it asks of the file, and where it leaves the position.
TEST_F(Checksums, OffsetsLengthsAndShortReads) {
  const struct {
    std::uint32_t flags, sizes;  // calls for the file's size: only a read to the end with SHA-1 does without
    std::uint64_t offset, length;
    std::uint32_t most_read;
    const char* digest;
  } rows[] = {{2, 1, 600000, 0, ~0U, SHA1_EMPTY},
              {2, 0, 0, 0, 777, SHA1_600000},
              {2, 1, 0, 270000, ~0U, SHA1_270000},
              {1, 1, 0, 300000, 65536, "07ce78c6751154bf7d8b781cad7a1c83"},
              {1, 1, 100, 0, ~0U, "8fd97be6548fe86746b6504ff4f251b4"},
              {4, 1, 1000, 2000, ~0U, "e0109348c3c352714b8635f1fd0786ad7253ce1c24018878fa670b4247ecc92e"},
              {2, 1, 700000, 5, ~0U, SHA1_EMPTY}};
  for (const auto& row : rows) {
    memory_file file(pattern());
    file.position = 100;
    file.most_read = row.most_read;
    qcksum record{};
    ASSERT_EQ(qcksum_compute(row.flags, &file, &record, &record, &record, row.offset, row.length), 0U);
    EXPECT_EQ(hex(record), row.digest) << row.flags << ' ' << row.offset << ' ' << row.length;
    EXPECT_EQ(record.type, row.flags);
    EXPECT_EQ(file.position, 100U);
    EXPECT_EQ(file.sizes, row.sizes);
  }
}

// A file that grows ends where it was told to end, one that shrinks ends early, and so does one that cannot be read.
TEST_F(Checksums, WholeFilesAreAsLargeAsTheyWereToldToBe) {
  const struct {
    std::uint64_t told;
    std::size_t present;
    std::uint32_t good_reads, reads;
    const char* digest;
  } rows[] = {{0, 600000, 9, 0, SHA1_EMPTY},
              {270000, 600000, 9, 2, SHA1_270000},
              {600000, 270000, 9, 3, SHA1_270000},
              {600000, 600000, 2, 3, SHA1_270000}};
  for (const auto& row : rows) {
    memory_file file(pattern().substr(0, row.present));
    file.size_told = row.told;
    file.most_read = row.good_reads == 2 ? 135000 : ~0U;
    file.read_fault = QERR_IO;
    file.reads_before_fault = row.good_reads;
    qcksum record{};
    EXPECT_EQ(qcksum_compute_whole(QCKSUM_SHA1, &file, &record, nullptr, nullptr), QERR_OK);
    EXPECT_EQ(hex(record), row.digest) << row.told;
    EXPECT_EQ(file.reads, row.reads) << row.told;
  }
}

TEST_F(Checksums, OtherFailuresAreReturned) {
  qcksum record{};
  for (std::uint32_t step = 0; step < 4; ++step) {
    memory_file file(pattern());
    file.position = 100;
    file.size_fault = step == 3 ? QERR_IO : QERR_OK;
    file.seek_fault = step < 3 ? QERR_IO : QERR_OK;
    file.seeks_before_fault = step;
    EXPECT_EQ(qcksum_compute(4, &file, nullptr, nullptr, &record, 0, 0), QERR_IO) << step;
    EXPECT_EQ(file.reads != 0, step == 2) << step;
    EXPECT_EQ(file.position, step == 2 ? 600000U : step == 1 || step == 3 ? 100U : file.position) << step;
  }
  EXPECT_EQ(record.type, 4);
  EXPECT_EQ(record.length, 32);
}

TEST_F(Checksums, BuffersAndIncrementalForms) {
  const struct {
    std::uint8_t kind;
    qerr_t (*digest)(const void*, std::size_t, std::uint8_t*) noexcept;
    std::size_t length;
    const char* of_abc;
    bool incremental;
  } rows[] = {
      {QCKSUM_MD5, qcksum_buf_md5, 16, "900150983cd24fb0d6963f7d28e17f72", true},
      {QCKSUM_SHA1, qcksum_buf_sha1, 20, "a9993e364706816aba3e25717850c26c9cd0d89d", true},
      {QCKSUM_SHA256, qcksum_buf_sha256, 32, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", false},
      {QCKSUM_SHA384, qcksum_buf_sha384, 48,
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7", false},
      {QCKSUM_SHA512, qcksum_buf_sha512, 64,
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
       "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f",
       false}};
  for (const auto& row : rows) {
    std::uint8_t out[64] = {};
    ASSERT_EQ(row.digest("abc", 3, out), 0U);
    EXPECT_EQ(hex(out, row.length), row.of_abc);
    EXPECT_EQ(row.digest(nullptr, 0, out), 0U);
    qcksum_ctx* context = qcksum_ctx_create(row.kind);
    // A digest that is under way when the runtime stops must still end well.
    qlib_lib_fini_basic();
    ASSERT_EQ(qlib_lib_init_basic(), 0U);
    const int done = row.incremental ? 0 : -1;
    qcksum record{};
    EXPECT_EQ(qcksum_ctx_update(context, "a", 1), done);
    EXPECT_EQ(qcksum_ctx_update(context, "bc", 2), done);
    EXPECT_EQ(qcksum_ctx_final(context, &record), done);
    EXPECT_EQ(hex(record), row.incremental ? row.of_abc : "");
    EXPECT_EQ(qcksum_ctx_final(context, &record), -1);  // only once
    qcksum_ctx_free(context);
  }
  EXPECT_EQ(qcksum_ctx_create(3), nullptr);
}

TEST_F(Checksums, Sum16) {
  const struct {
    std::vector<std::uint8_t> bytes;
    std::uint16_t sum;
  } rows[] = {{{0xFF, 0xFF, 1, 0}, 1},
              {{}, 0},
              {{0x34, 0x12, 0xAA}, 0x1234},
              {{0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFF},
              {{0, 0x80, 0, 0x80, 2, 0}, 3}};
  for (const auto& row : rows) {
    std::uint16_t sum = 7;
    EXPECT_EQ(qcksum_buf_sum16(row.bytes.data(), row.bytes.size(), &sum), 0U);
    EXPECT_EQ(sum, row.sum);
  }
}

// As many bytes as the type has, whatever lengths the records tell.
TEST_F(Checksums, Compare) {
  const qcksum a{QCKSUM_SHA1, 20, {}};
  qcksum b{QCKSUM_SHA1, 3, {}};
  b.value[20] = 1;
  EXPECT_EQ(qcksum_compare(&a, &b), 1U);
  b.value[19] = 1;
  EXPECT_EQ(qcksum_compare(&a, &b), 0U);
  b = {QCKSUM_MD5, 20, {}};
  EXPECT_EQ(qcksum_compare(&a, &b), 0U);
}

TEST_F(Checksums, TextOfARecordStaysInItsBuffer) {
  const qcksum record{QCKSUM_MD5, 3, {0x0F, 0xA0, 0xBC}};
  std::u16string text(9, u'#');
  EXPECT_EQ(qcksum2_to_qstr(text.data(), 16, &record), 0U);
  EXPECT_TEXT(text, std::u16string(u"0fa0bc\0\0#", 9));
  EXPECT_EQ(qcksum_to_qstr(text.data(), 12, &record), 0U);  // room for two bytes and a half
  EXPECT_TEXT(text.c_str(), u"0fa0");
  const qcksum lying{QCKSUM_SHA512, 255, {}};
  qchar long_text[600];
  EXPECT_EQ(qcksum_to_qstr(long_text, sizeof(long_text), &lying), 0U);
  EXPECT_EQ(qstr_len(long_text), 128U);
}

TEST_F(Checksums, TextOfABareDigest) {
  (void)qlog_set_format(QLOG_COLUMN_FUNCTION | QLOG_COLUMN_MODULE);
  std::u16string text(66, u'#');
  const std::uint8_t digest[32] = {0xAB, 1};
  EXPECT_EQ(qcksum_SHA1_to_qstr(digest, text.data(), 20), 0U);
  EXPECT_TEXT(text, u"ab01" + std::u16string(36, u'0') + std::u16string(26, u'#'));
  EXPECT_EQ(printed([&] { EXPECT_EQ(qcksum_SHA1_to_qstr(digest, text.data(), 31), QERR_INVALID); }),
            "QCKSUM: qcksum_SHA1_to_qstr(): qcksum_SHA1_to_qstr - Invalid parameters  buf_len_bytes: 31 , "
            "QCKSUM_SHA1_BIN_LEN= 20\n");
  EXPECT_EQ(qcksum_SHA2_to_qstr(digest, text.data(), 31), QERR_INVALID);
  EXPECT_EQ(qcksum_SHA2_to_qstr(digest, text.data(), 32), 0U);
  EXPECT_TEXT(text, u"ab01" + std::u16string(60, u'0') + u"##");
}

TEST_F(Checksums, TextBackToBytes) {
  qcksum record{77, 66, {}};
  EXPECT_EQ(qstr_to_qcksum(u"0fA0Bc9", &record), 0U);
  EXPECT_EQ(hex(record.value, 4), "0fa0bc00");
  EXPECT_EQ(record.type, 77);
  EXPECT_EQ(qstr_to_qcksum(std::u16string(1000, u'f').c_str(), &record), 0U);
  EXPECT_EQ(qstr_to_qcksum(u"zz!\uFFFF", &record), 0U);  // not validated, and harmless
}

}  // namespace
