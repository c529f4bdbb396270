// What the tests of the runtime share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"

// Wide texts, shown as UTF-8 when they differ.
#define EXPECT_TEXT(actual, expected) EXPECT_EQ(qstr_to_utf8(actual), qstr_to_utf8(expected))

// A started runtime, and what was written to standard output, with LF line ends.
class Runtime : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(qlib_lib_init_basic(), 0U); }
  void TearDown() override { qlib_lib_fini_basic(); }

  template <class Body>
  static std::string printed(Body&& body) {
    testing::internal::CaptureStdout();
    body();
    std::string text = testing::internal::GetCapturedStdout();
    std::erase(text, '\r');
    return text;
  }
};

// An empty folder of this test's own.
inline std::filesystem::path scratch_folder(const char* name) {
  const char* root = std::getenv("TESSIVATOR_SCRATCH");
  std::filesystem::path folder = std::filesystem::path(root != nullptr ? root : "scratch") / name;
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return std::filesystem::absolute(folder).make_preferred();
}
