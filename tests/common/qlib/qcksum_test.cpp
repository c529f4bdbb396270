#include "common/qlib/qcksum.h"

#include <cstring>

#include "support/fixture_table.h"
#include "support/memory_file.h"
#include "support/runtime.h"

namespace {

constexpr const char* SHA1_EMPTY = "da39a3ee5e6b4b0d3255bfef95601890afd80709";
constexpr const char* MD5_EMPTY = "d41d8cd98f00b204e9800998ecf8427e";
constexpr const char* SHA256_EMPTY = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

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
  EXPECT_EQ(qcksum_compute(0, &file, &record, &record, &record, 0, 0), QERR_ARG1);
  EXPECT_EQ(qcksum_compute(8, &file, &record, &record, &record, 0, 0), QERR_ARG1);
  EXPECT_EQ(record.type, 99);
  EXPECT_EQ(record.length, 99);
  EXPECT_EQ(qcksum_compute(2, &file, nullptr, &record, &record, 0, 0), QERR_INVALID);
  EXPECT_EQ(qcksum_compute(1, &file, &record, nullptr, &record, 0, 0), QERR_INVALID);
  EXPECT_EQ(qcksum_compute(6, &file, &record, &record, nullptr, 0, 0), QERR_INVALID);
  EXPECT_EQ(record.type, 99);
  EXPECT_EQ(qcksum_compute(2, QFILE_INVALID, &record, nullptr, nullptr, 0, 0), QERR_ARG1);
}

TEST_F(Checksums, OffsetsLengthsAndShortReads) {
  const struct {
    std::uint32_t flags;
    int sizes;  // calls for the file's size: only a whole pass with SHA-1 does without
    std::uint64_t offset;
    std::uint64_t length;
    std::uint32_t most_read;
    const char* digest;
  } rows[] = {{1, 1, 600000, 0, ~0U, MD5_EMPTY},
              {2, 1, 600000, 0, ~0U, SHA1_EMPTY},
              {2, 0, 0, 0, ~0U, "f3309429e310b64aac5531e848cf718f3ec63313"},
              {2, 0, 0, 0, 777, "f3309429e310b64aac5531e848cf718f3ec63313"},
              {2, 1, 0, 270000, ~0U, "8bfd78bd617328c4aaf0464eab2afd79efba49fb"},
              {1, 1, 0, 300000, 65536, "07ce78c6751154bf7d8b781cad7a1c83"},
              {1, 1, 100, 0, ~0U, "8fd97be6548fe86746b6504ff4f251b4"},
              {4, 1, 1000, 2000, ~0U, "e0109348c3c352714b8635f1fd0786ad7253ce1c24018878fa670b4247ecc92e"},
              {4, 1, 600000, 0, ~0U, SHA256_EMPTY},
              {4, 1, 700000, 0, ~0U, SHA256_EMPTY},
              {4, 1, 700000, 5, ~0U, SHA256_EMPTY}};
  for (const auto& row : rows) {
    memory_file file(pattern());
    file.position = 100;
    file.most_read = row.most_read;
    qcksum record{};
    ASSERT_EQ(qcksum_compute(row.flags, &file, &record, &record, &record, row.offset, row.length), 0U);
    EXPECT_EQ(hex(record), row.digest) << row.flags << ' ' << row.offset << ' ' << row.length;
    EXPECT_EQ(record.type, row.flags);
    EXPECT_EQ(file.position, 100U);
    EXPECT_EQ(file.sizes, static_cast<std::uint32_t>(row.sizes));
  }
}

TEST_F(Checksums, WholeFilesAreAsLargeAsTheyWereToldToBe) {
  const struct {
    std::uint64_t size_told;
    std::size_t present;
    std::uint32_t reads;
    const char* digest;
  } rows[] = {{0, 600000, 0, SHA1_EMPTY},
              {270000, 600000, 2, "8bfd78bd617328c4aaf0464eab2afd79efba49fb"},
              {600000, 270000, 3, "8bfd78bd617328c4aaf0464eab2afd79efba49fb"}};
  for (const auto& row : rows) {
    memory_file file(pattern().substr(0, row.present));
    file.size_told = row.size_told;
    qcksum record{};
    EXPECT_EQ(qcksum_compute_whole(QCKSUM_SHA1, &file, &record, nullptr, nullptr), QERR_OK);
    EXPECT_EQ(hex(record), row.digest) << row.size_told;
    EXPECT_EQ(file.reads, row.reads) << row.size_told;
  }
}

TEST_F(Checksums, AReadThatFailsEndsThePass) {
  memory_file file(pattern());
  file.most_read = 135000;
  file.read_fault = QERR_IO;
  file.reads_before_fault = 2;
  qcksum record{};
  EXPECT_EQ(qcksum_compute(2, &file, &record, nullptr, nullptr, 0, 0), 0U);
  EXPECT_EQ(hex(record), "8bfd78bd617328c4aaf0464eab2afd79efba49fb");
  EXPECT_EQ(file.position, 0U);
}

TEST_F(Checksums, OtherFailuresAreReturned) {
  memory_file no_size(pattern());
  no_size.size_fault = QERR_IO;
  no_size.position = 100;
  qcksum record{};
  EXPECT_EQ(qcksum_compute(4, &no_size, nullptr, nullptr, &record, 0, 0), QERR_IO);
  EXPECT_EQ(no_size.position, 100U);
  EXPECT_EQ(record.type, 4);
  EXPECT_EQ(record.length, 32);
  for (std::uint32_t seeks = 0; seeks < 3; ++seeks) {
    memory_file file(pattern());
    file.position = 100;
    file.seek_fault = QERR_IO;
    file.seeks_before_fault = seeks;
    EXPECT_EQ(qcksum_compute(2, &file, &record, nullptr, nullptr, 0, 0), QERR_IO) << seeks;
    EXPECT_EQ(file.reads == 0, seeks < 2) << seeks;
  }
}

TEST_F(Checksums, FilesByPath) {
  const std::u16string path = fixture_wide("packages/plain.msi");
  qcksum record{};
  EXPECT_EQ(qcksum_compute_file(2, path.c_str(), &record, nullptr, nullptr, 0, 0), 0U);
  std::uint8_t digest[20];
  const std::vector<std::byte> bytes = fixture_bytes("packages/plain.msi");
  EXPECT_EQ(qcksum_buf_sha1(bytes.data(), bytes.size(), digest), QERR_OK);
  EXPECT_EQ(hex(record), hex(digest, 20));
  EXPECT_EQ(qcksum_compute_file(2, (path + u".none").c_str(), &record, nullptr, nullptr, 0, 0), QERR_NOT_FOUND);
}

TEST_F(Checksums, Buffers) {
  const struct {
    qerr_t (*digest)(const void*, std::size_t, std::uint8_t*) noexcept;
    std::size_t length;
    const char* of_abc;
  } rows[] = {
      {qcksum_buf_md5, 16, "900150983cd24fb0d6963f7d28e17f72"},
      {qcksum_buf_sha1, 20, "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {qcksum_buf_sha256, 32, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {qcksum_buf_sha384, 48,
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
       "8086072ba1e7cc2358baeca134c825a7"},
      {qcksum_buf_sha512, 64,
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
       "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
  };
  for (const auto& row : rows) {
    std::uint8_t out[64] = {};
    ASSERT_EQ(row.digest("abc", 3, out), 0U);
    EXPECT_EQ(hex(out, row.length), row.of_abc);
  }
  std::uint8_t out[64] = {};
  EXPECT_EQ(qcksum_buf_sha1(nullptr, 0, out), 0U);
  EXPECT_EQ(hex(out, 20), SHA1_EMPTY);
}

TEST_F(Checksums, Sum16) {
  const struct {
    std::vector<std::uint8_t> bytes;
    std::uint16_t sum;
  } rows[] = {{{0xFF, 0xFF, 1, 0}, 1},
              {{}, 0},
              {{0x55}, 0},
              {{0x34, 0x12, 0xAA}, 0x1234},
              {{0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFF},
              {{0, 0x80, 0, 0x80, 2, 0}, 3}};
  for (const auto& row : rows) {
    std::uint16_t sum = 7;
    EXPECT_EQ(qcksum_buf_sum16(row.bytes.data(), row.bytes.size(), &sum), 0U);
    EXPECT_EQ(sum, row.sum);
  }
}

TEST_F(Checksums, IncrementalForMd5AndSha1Only) {
  const struct {
    std::uint8_t kind;
    const char* of_abc;
  } rows[] = {{QCKSUM_MD5, "900150983cd24fb0d6963f7d28e17f72"},
              {QCKSUM_SHA1, "a9993e364706816aba3e25717850c26c9cd0d89d"}};
  for (const auto& row : rows) {
    qcksum_ctx* context = qcksum_ctx_create(row.kind);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(qcksum_ctx_update(context, "a", 1), 0);
    EXPECT_EQ(qcksum_ctx_update(context, nullptr, 0), 0);
    EXPECT_EQ(qcksum_ctx_update(context, "bc", 2), 0);
    qcksum record{};
    EXPECT_EQ(qcksum_ctx_final(context, &record), 0);
    EXPECT_EQ(record.type, row.kind);
    EXPECT_EQ(hex(record), row.of_abc);
    EXPECT_EQ(qcksum_ctx_final(context, &record), -1);  // only once
    qcksum_ctx_free(context);
  }
  qcksum_ctx* other = qcksum_ctx_create(QCKSUM_SHA256);
  ASSERT_NE(other, nullptr);
  qcksum record{};
  EXPECT_EQ(qcksum_ctx_update(other, "a", 1), -1);
  EXPECT_EQ(qcksum_ctx_final(other, &record), -1);
  qcksum_ctx_free(other);
  EXPECT_EQ(qcksum_ctx_create(3), nullptr);
  EXPECT_EQ(qcksum_ctx_update(nullptr, "a", 1), -1);
  qcksum_ctx_free(nullptr);
}

// A digest that is under way when the runtime stops must still end well.
TEST_F(Checksums, OutliveTheRuntime) {
  qcksum_ctx* context = qcksum_ctx_create(QCKSUM_MD5);
  qlib_lib_fini_basic();
  ASSERT_EQ(qlib_lib_init_basic(), 0U);
  std::uint8_t out[64] = {};
  EXPECT_EQ(qcksum_buf_md5("abc", 3, out), 0U);
  qcksum record{};
  EXPECT_EQ(qcksum_ctx_update(context, "abc", 3), 0);
  EXPECT_EQ(qcksum_ctx_final(context, &record), 0);
  EXPECT_EQ(hex(record), hex(out, 16));
  qcksum_ctx_free(context);
}

TEST_F(Checksums, CompareByTypeAndItsLength) {
  const struct {
    std::uint8_t type, other_type;
    std::size_t differs_at;
    std::uint32_t same;
  } rows[] = {{QCKSUM_SHA1, QCKSUM_SHA1, 20, 1},  {QCKSUM_SHA1, QCKSUM_SHA1, 19, 0},
              {QCKSUM_SHA1, QCKSUM_MD5, 60, 0},   {3, 3, 60, 0},
              {QCKSUM_SUM16, QCKSUM_SUM16, 2, 1}, {QCKSUM_MD5, QCKSUM_MD5, 15, 0}};
  for (const auto& row : rows) {
    const qcksum a{row.type, 20, {}};
    qcksum b{row.other_type, 3, {}};  // the lengths that they tell do not count
    b.value[row.differs_at] = 1;
    EXPECT_EQ(qcksum_compare(&a, &b), row.same) << row.differs_at;
    EXPECT_EQ(qcksum_compare(&a, nullptr), 0U);
  }
}

TEST_F(Checksums, TextOfARecordStaysInItsBuffer) {
  const qcksum record{QCKSUM_MD5, 3, {0x0F, 0xA0, 0xBC}};
  qchar text[9];
  std::fill(std::begin(text), std::end(text), u'#');
  EXPECT_EQ(qcksum2_to_qstr(text, 16, &record), 0U);
  EXPECT_TEXT(text, u"0fa0bc");
  EXPECT_EQ(text[7], 0);
  EXPECT_EQ(text[8], u'#');
  EXPECT_EQ(qcksum_to_qstr(text, 12, &record), 0U);  // room for two bytes and a half
  EXPECT_TEXT(text, u"0fa0");
  const qcksum lying{QCKSUM_SHA512, 255, {}};
  qchar long_text[600];
  EXPECT_EQ(qcksum_to_qstr(long_text, sizeof(long_text), &lying), 0U);
  EXPECT_EQ(qstr_len(long_text), 128U);
}

TEST_F(Checksums, TextOfABareDigest) {
  const struct {
    qerr_t (*convert)(const std::uint8_t*, qchar*, std::uint32_t) noexcept;
    std::uint32_t length;
    const char* message;  // for the length 31
  } rows[] = {
      {qcksum_SHA1_to_qstr, 20,
       "qcksum_SHA1_to_qstr(): qcksum_SHA1_to_qstr - Invalid parameters  buf_len_bytes: 31 , QCKSUM_SHA1_BIN_LEN= "
       "20\n"},
      {qcksum_MD5_to_qstr, 16,
       "qcksum_MD5_to_qstr(): qcksum_MD5_to_qstr - Invalid parameters  buf_len_bytes: 31 , QCKSUM_MD5_BIN_LEN= 16\n"},
      {qcksum_SHA2_to_qstr, 32,
       "qcksum2_SHA2_to_qstr(): qcksum_SHA2_to_qstr - Invalid parameters  buf_len_bytes: 31 , "
       "QCKSUM_SHA256_BIN_LEN= 32\n"},
  };
  (void)qlog_set_format(QLOG_COLUMN_FUNCTION | QLOG_COLUMN_MODULE);
  for (const auto& row : rows) {
    const std::uint8_t digest[32] = {0xAB, 1};
    qchar text[66];
    std::fill(std::begin(text), std::end(text), u'#');
    EXPECT_EQ(row.convert(digest, text, row.length), 0U);
    EXPECT_TEXT(std::u16string(text, 4), u"ab01");
    EXPECT_EQ(text[std::size_t{row.length} * 2 - 1], u'0');
    EXPECT_EQ(text[std::size_t{row.length} * 2], u'#');
    EXPECT_EQ(printed([&] { EXPECT_EQ(row.convert(digest, text, 31), QERR_INVALID); }),
              std::string("QCKSUM: ") + row.message);
  }
}

TEST_F(Checksums, TextBackToBytes) {
  qcksum record{77, 66, {}};
  EXPECT_EQ(qstr_to_qcksum(u"0fA0Bc9", &record), 0U);
  EXPECT_EQ(hex(record.value, 4), "0fa0bc00");
  EXPECT_EQ(record.type, 77);
  EXPECT_EQ(record.length, 66);
  EXPECT_EQ(qstr_to_qcksum(std::u16string(1000, u'f').c_str(), &record), 0U);
  EXPECT_EQ(record.value[63], 0xFF);
  EXPECT_EQ(qstr_to_qcksum(u"zz!\uFFFF", &record), 0U);  // not validated, and harmless
}

}  // namespace
