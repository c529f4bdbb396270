// Whole files: images with their tables, packages, and everything else.
#include <gtest/gtest.h>

#include "sgn/sgn_cache.h"
#include "sgn/support.h"

namespace {

using SgnX509 = Runtime;

TEST_F(SgnX509, YieldsTheNamesAndFilesOfTheTable) {
  const fs::path folder = scratch_folder("files");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  auto rows = fixture_table("certificates");
  std::erase_if(rows, [](const fixture_row& row) { return row.at("file").starts_with("cabinets/"); });  // none of these
  ASSERT_GT(rows.size(), 40U);
  for (const fixture_row& row : rows) {
    SCOPED_TRACE(row.at("file"));
    for (const std::uint32_t all : {0U, 1U}) {
      const Names expected = list_of(row.at(all != 0 ? "all" : "signers"));
      const Outcome outcome = extract_file(fixture_path(row.at("file")), folder, all, cache.get());
      EXPECT_EQ(outcome.code == QERR_OK, !expected.empty()) << outcome.code;
      EXPECT_EQ(outcome.names, expected);
      expect_certificate_files(folder, outcome.names);
    }
  }
}

// Tables damaged one field at a time. A file whose last entry does not decode yields an error and no names, though the
// certificates of the entries before it are written.
TEST_F(SgnX509, FollowsDamagedTables) {
  const auto rows = fixture_table("cert_table");
  ASSERT_GT(rows.size(), 50U);
  for (const fixture_row& row : rows) {
    SCOPED_TRACE(row.at("file"));
    const fs::path folder = scratch_folder("damaged");
    const std::size_t found = std::stoul(row.at("named"));
    const Outcome outcome = extract_file(fixture_path(row.at("file")), folder, 0);
    EXPECT_EQ(static_cast<std::int32_t>(outcome.code), std::stoi(row.at("extraction")));
    EXPECT_EQ(outcome.names.size(), found);
    EXPECT_EQ(fs::is_empty(folder), found == 0);
    const Names leaf(found == 0 ? 0 : 1, "6094c63c905babeb29376d7219b1387b45f401bb9a2adec98dac47c74f7e91da");
    expect_certificate_files(folder, leaf);
  }
}

TEST_F(SgnX509, WhatIsNeitherImageNorPackageIsNotFound) {
  const fs::path folder = scratch_folder("others");
  for (const char* const file : {"pkcs7/signed_rsa.der", "cabinets/signed_rsa.cab", "there is no such file", "pkcs7"}) {
    EXPECT_EQ(extract_file(fixture_path(file), folder, 0).code, QERR_NOT_FOUND) << file;
  }
  EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
