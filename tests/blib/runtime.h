// The runtime around every test of this folder; images are opened over files in memory.
#pragma once

#include <gtest/gtest.h>

#include "blib/blib_bin.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "support/crafted_file.h"
#include "support/fixture_table.h"
#include "support/image_builder.h"

class Images : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(qlib_lib_init_basic(), QERR_OK);
    qlog_console_off();
  }
  void TearDown() override { qlib_lib_fini_basic(); }

  static qerr_t open(crafted_file& file, BlibBinByHandleOwner& image, std::uint32_t flags = BLIB_READ) {
    blib_bin* opened = nullptr;
    const qerr_t code = blib_bin_open_by_handle(&file, u"memory", &opened, flags, 0);
    image.reset(opened);
    EXPECT_EQ(image != nullptr, code == QERR_OK);
    return code;
  }
  static qerr_t open(crafted_file& file) {
    BlibBinByHandleOwner image;
    return open(file, image);
  }
};
