#include "common/qlib/qcksum.h"

#include "support/fixture_table.h"
#include "support/memory_file.h"
#include "support/runtime.h"

namespace {

std::string hex(const qcksum& record) {
  qchar text[129];
  EXPECT_EQ(qcksum_to_qstr(text, sizeof(text), &record), 0U);
  return qstr_to_utf8(text);
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

// What a pass covers, what it asks of the file, and where it leaves the position. A file that grows ends where it was
// told to end, one that shrinks ends early, and so does one that cannot be read. Only a read to the end with SHA-1 does
// without the file's size.
TEST_F(Checksums, PassesReadWhatTheyCover) {
  for (const fixture_row& row : fixture_rows("common/qlib/checksums.tsv")) {
    SCOPED_TRACE(row.at("what"));
    memory_file file(pattern().substr(0, row.number("present")));
    file.position = 100;
    file.size_told = row.number("told");
    file.most_read = row.number("at_once");
    file.read_fault = QERR_IO;
    file.reads_before_fault = row.number("good_reads");
    const std::uint32_t kind = row.number("kind");
    qcksum record{};
    EXPECT_EQ(row.at("offset") == "whole"
                  ? qcksum_compute_whole(kind, &file, &record, &record, &record)
                  : qcksum_compute(kind, &file, &record, &record, &record, row.number("offset"), row.number("length")),
              QERR_OK);
    EXPECT_EQ(hex(record), row.at("digest"));
    EXPECT_EQ(record.type, kind);
    EXPECT_EQ(file.position, 100U);
    EXPECT_EQ(file.reads, row.number("reads"));
    EXPECT_EQ(file.sizes, row.number("sizes"));
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
    EXPECT_EQ(file.position, step == 2 ? 600000U : 100U) << step;
  }
  EXPECT_EQ(record.type, 4);
  EXPECT_EQ(record.length, 32);
}

// Of "abc". Only two kinds have an incremental form.
TEST_F(Checksums, BuffersAndIncrementalForms) {
  qerr_t (*const digests[])(const void*, std::size_t, std::uint8_t*) noexcept = {
      qcksum_buf_md5, qcksum_buf_sha1, qcksum_buf_sha256, qcksum_buf_sha384, qcksum_buf_sha512};
  const auto* digest = digests;
  for (const fixture_row& row : fixture_rows("common/qlib/digests.tsv")) {
    SCOPED_TRACE(row.at("name"));
    const bool incremental = row.at("incremental") == "yes";
    qcksum record{0, static_cast<std::uint8_t>(row.at("of_abc").size() / 2), {}};
    EXPECT_EQ((*digest)("abc", 3, record.value), 0U);
    EXPECT_EQ(hex(record), row.at("of_abc"));
    EXPECT_EQ((*digest++)(nullptr, 0, record.value), 0U);
    qcksum_ctx* context = qcksum_ctx_create(row.number<std::uint8_t>("kind"));
    // A digest that is under way when the runtime stops must still end well.
    qlib_lib_fini_basic();
    ASSERT_EQ(qlib_lib_init_basic(), 0U);
    const int done = incremental ? 0 : -1;
    record = {};
    EXPECT_EQ(qcksum_ctx_update(context, "a", 1), done);
    EXPECT_EQ(qcksum_ctx_update(context, "bc", 2), done);
    EXPECT_EQ(qcksum_ctx_final(context, &record), done);
    EXPECT_EQ(hex(record), incremental ? row.at("of_abc") : "");
    EXPECT_EQ(qcksum_ctx_final(context, &record), -1) << "only once";
    qcksum_ctx_free(context);
  }
  EXPECT_EQ(qcksum_ctx_create(3), nullptr);
}

TEST_F(Checksums, Sum16) {
  for (const fixture_row& row : fixture_rows("common/qlib/sums.tsv")) {
    qcksum bytes{};
    EXPECT_EQ(qstr_to_qcksum(row.wide("bytes").c_str(), &bytes), 0U);
    std::uint16_t sum = 7;
    EXPECT_EQ(qcksum_buf_sum16(bytes.value, row.at("bytes").size() / 2, &sum), 0U);
    EXPECT_EQ(sum, row.number("sum")) << row.at("bytes");
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
  qcksum record{77, 4, {}};
  EXPECT_EQ(qstr_to_qcksum(u"0fA0Bc9", &record), 0U);
  EXPECT_EQ(hex(record), "0fa0bc00");
  EXPECT_EQ(record.type, 77);
  EXPECT_EQ(record.length, 4);
  EXPECT_EQ(qstr_to_qcksum(std::u16string(1000, u'f').c_str(), &record), 0U);
  EXPECT_EQ(qstr_to_qcksum(u"zz!\uFFFF", &record), 0U);  // not validated, and harmless
}

}  // namespace
