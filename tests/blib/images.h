// Images opened over files in memory.
#pragma once

#include "blib/blib_bin.h"
#include "support/fixture_table.h"
#include "support/image_builder.h"
#include "support/memory_file.h"
#include "support/runtime.h"

class Images : public Runtime {
 protected:
  static qerr_t open(memory_file& file, BlibBinByHandleOwner& image, std::uint32_t flags = BLIB_READ) {
    blib_bin* opened = nullptr;
    const qerr_t code = blib_bin_open_by_handle(&file, u"memory", &opened, flags, 0);
    image.reset(opened);
    EXPECT_EQ(image != nullptr, code == QERR_OK);
    return code;
  }
  static qerr_t open(memory_file& file) {
    BlibBinByHandleOwner image;
    return open(file, image);
  }
};
