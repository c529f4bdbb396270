#include "blib/blib_authenticode.h"

#include "blib/images.h"

namespace {

// What osslsigncode would sign, whether the bytes come at once or in parts that end inside what is left out.
TEST_F(Images, HaveTheAuthenticodeDigestsOfTheTable) {
  blib_authenticode digests;
  const std::pair<const char*, std::uint8_t> kinds[] = {
      {"sha1", QCKSUM_SHA1}, {"sha256", QCKSUM_SHA256}, {"sha384", QCKSUM_SHA384}};
  each_row("authenticode", [&](const fixture_row& row, memory_file& file, const blib_bin& image) {
    for (const std::uint32_t at_once : {~0U, 7U}) {
      file.most_read = at_once;
      qcksum sum{};
      ASSERT_EQ(digests.begin(&image, QCKSUM_SHA1 | QCKSUM_SHA256 | QCKSUM_SHA384), QERR_OK);
      ASSERT_EQ(qcksum_compute_whole(QCKSUM_SHA1, &file, &sum, nullptr, nullptr, digests.tap()), QERR_OK);
      for (const auto& [name, kind] : kinds) {
        qchar text[129] = {};
        ASSERT_EQ(digests.finish(kind, &sum), QERR_OK);
        ASSERT_EQ(qcksum_to_qstr(text, sizeof text, &sum), QERR_OK);
        EXPECT_EQ(qstr_to_utf8(text), row.at(name)) << at_once;
        EXPECT_EQ(digests.finish(kind, &sum), QERR_NOT_FOUND);
      }
    }
    ASSERT_EQ(digests.begin(&image, QCKSUM_SHA1), QERR_OK);
    qcksum sum{};
    file.size_told = file.size_bytes - 1;
    ASSERT_EQ(qcksum_compute_whole(QCKSUM_SHA1, &file, &sum, nullptr, nullptr, digests.tap()), QERR_OK);
    EXPECT_EQ(digests.finish(QCKSUM_SHA1, &sum), QERR_INVALID) << "the file has shrunk";
  });
}

}  // namespace
