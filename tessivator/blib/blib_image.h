// What an open image is, and ranges of its file by offset.
//
// A record is used by one thread at a time; different records are independent.
#pragma once

#include <string>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qtypes.h"

// An open image. Made by open, released by close, read-only in between; use the functions of blib_bin.h, blib_headers.h
// and below.
struct blib_bin {
  std::u16string file_name;      // for messages
  qfile_t file = QFILE_INVALID;  // borrowed by blib_bin_open_by_handle, owned by blib_bin_open
  std::uint32_t access_mode = 0;
  std::uint32_t file_size = 0;  // low 32 bits of the size
  std::uint64_t full_size = 0;  // the size that every bound is checked against
  Bytes view;                   // the leading bytes of the file
  bool view_is_buffer = false;  // from qmem_alloc, else from qfile_map
  Bytes held;                   // the start of the file as the open file keeps it; unless empty, the view is part of it
  bool is_64bit = false;        // PE32+
  std::vector<std::byte> nt_copy;       // the NT headers when they lie beyond the view
  std::vector<std::byte> section_copy;  // the section table when the NT headers had to be copied
  Bytes nt_headers;                     // from the PE signature on, in the view or in the copy
  Bytes section_table;                  // empty when the table is not inside the view
};

// Reads `length` bytes at file offset `offset`. A read past the end of the file succeeds with the bytes that exist and
// does not change the rest of `destination`: zero it first. QERR_ARG1 and QERR_ARG2 for a missing argument, or a file
// error.
[[nodiscard]] qerr_t blib_bin_get_buf(blib_bin* image, void* destination, std::uint32_t offset,
                                      std::uint32_t length) noexcept;
