// Links at a certificate's path; Windows lets only privileged users make them.
#include <gtest/gtest.h>

#include "sgn/support.h"
#include "sgn/tables.h"

namespace {

using SgnPosix = Runtime;

constexpr const char* leaf = "6094c63c905babeb29376d7219b1387b45f401bb9a2adec98dac47c74f7e91da";

TEST_F(SgnPosix, ALinkAtTheTargetIsReplacedAndNotFollowed) {
  const std::string bytes = file_text(fixture("pkcs7/signed_rsa.der"));
  for (const char* const target : {"victim", "dangling"}) {
    const fs::path folder = scratch_folder("link");
    const fs::path file = folder / (std::string(leaf) + ".cer");
    write_bytes(folder / "victim", "precious");
    fs::create_symlink(folder / target, file);
    EXPECT_EQ(extract_bytes(bytes, folder, 0).names, Names{leaf});
    EXPECT_EQ(file_text(folder / "victim"), "precious");
    EXPECT_FALSE(fs::exists(folder / "dangling"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
    expect_certificate_files(folder, {leaf});
  }
}

}  // namespace
