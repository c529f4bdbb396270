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
  static BlibBinByHandleOwner opened(memory_file& file, std::uint32_t flags = BLIB_READ) {
    BlibBinByHandleOwner image;
    EXPECT_EQ(open(file, image, flags), QERR_OK);
    return image;
  }
  // Each image of a table of fixtures, opened in memory.
  template <class Body>
  static void each_row(const char* table, Body&& body) {
    for (const auto& row : fixture_table(table)) {
      SCOPED_TRACE(row.at("file"));
      memory_file file(fixture_bytes(row.at("file")));
      body(row, file, *opened(file));
    }
  }
};
