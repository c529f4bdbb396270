// Executable images (Portable Executable, PE32 and PE32+): open, headers, and ranges of the file by offset. The image
// is never loaded; only its first 8 KiB are held, everything further is read on demand.
//
// A record is used by one thread at a time; different records are independent.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// Access modes; editing is refused with QERR_ARG4. The two top bits of by-handle flags change how the view is made.
inline constexpr std::uint32_t BLIB_READ = 4;
inline constexpr std::uint32_t BLIB_READ_WRITE = 12;
inline constexpr std::uint32_t BLIB_READ_NOT_MAP = 1U << 30;  // a private buffer instead of a mapping
inline constexpr std::uint32_t BLIB_WHOLE_FILE = 1U << 31;    // a view of the whole file

// Data directory entries that this system reads. The security entry's address is a file offset, not an RVA.
inline constexpr std::uint32_t BLIB_DIRECTORY_RESOURCE = 2;
inline constexpr std::uint32_t BLIB_DIRECTORY_SECURITY = 4;

// Bits of the file header's characteristics.
inline constexpr std::uint16_t BLIB_FILE_EXECUTABLE = 0x0002;
inline constexpr std::uint16_t BLIB_FILE_DLL = 0x2000;

// One section header, as far as it is used.
struct blib_section {
  char name[9];  // terminated
  std::uint32_t virtual_size;
  std::uint32_t virtual_address;
  std::uint32_t raw_size;
  std::uint32_t raw_pointer;
};

// An open image. Made by open, released by close, read-only in between; use the functions below.
struct blib_bin {
  std::u16string file_name;      // for messages
  qfile_t file = QFILE_INVALID;  // borrowed by blib_bin_open_by_handle, owned by blib_bin_open
  std::uint32_t access_mode = 0;
  std::uint32_t file_size = 0;  // low 32 bits
  std::uint64_t full_size = 0;  // what every bound is checked against
  Bytes view;                   // the leading bytes of the file
  bool view_is_buffer = false;  // from qmem_alloc, else from qfile_map
  Bytes held;  // what the open file itself keeps of its start; unless empty, the view is the beginning of that
  bool is_64bit = false;                // PE32+
  std::vector<std::byte> nt_copy;       // the NT headers when they lie beyond the view
  std::vector<std::byte> section_copy;  // the section table when the NT headers had to be copied
  Bytes nt_headers;                     // from the PE signature on, in the view or in the copy
  Bytes section_table;                  // empty when the table is not inside the view
};

// Opens the image at `path` for reading; every caller passes BLIB_READ and extra size 0. QERR_ARG1 without a path,
// QERR_ARG2 without an out pointer, QERR_ARG4 for BLIB_READ_WRITE, a file error, or one of blib_bin_open_by_handle's
// codes. `out` is null on failure.
[[nodiscard]] qerr_t blib_bin_open(const qchar* path, blib_bin** out, std::uint32_t mode,
                                   std::uint32_t extra_size) noexcept;

// The same over an open file, which stays the caller's also on success and must outlive the record. QERR_ARG1
// without a handle, QERR_ARG3 without an out pointer, QERR_ARG4 for a mode other than BLIB_READ, QERR_LOW_MEMORY,
// QERR_BAD_IMAGE for what is no valid image, QERR_EMPTY_FILE, or a file error.
[[nodiscard]] qerr_t blib_bin_open_by_handle(qfile_t file, const qchar* path, blib_bin** out, std::uint32_t flags,
                                             std::uint32_t extra_size) noexcept;

// Validates DOS header, NT headers and section table of a view; called by open. QERR_ARG1 without an image,
// QERR_BAD_IMAGE, QERR_LOW_MEMORY, or a read error.
[[nodiscard]] qerr_t blib_bin_parse_headers(blib_bin* image) noexcept;

// Reads `length` bytes at file offset `offset` from the file itself. A read past the end succeeds with the bytes that
// exist and leaves the rest of `destination` as it is: callers zero it first. QERR_ARG1 and QERR_ARG2 without an
// argument, or a file error.
[[nodiscard]] qerr_t blib_bin_get_buf(blib_bin* image, void* destination, std::uint32_t offset,
                                      std::uint32_t length) noexcept;

// Release the record, without or with its file; null is allowed. A code tells that the view could not be given back,
// which leaves the caller nothing to do.
[[nodiscard]] qerr_t blib_bin_close_by_handle(blib_bin* image) noexcept;
[[nodiscard]] qerr_t blib_bin_close(blib_bin* image) noexcept;
using BlibBinOwner = std::unique_ptr<blib_bin, FreeWith<blib_bin_close>>;  // from blib_bin_open
using BlibBinByHandleOwner =
    std::unique_ptr<blib_bin, FreeWith<blib_bin_close_by_handle>>;  // the file is someone else's

// Data directory entry `index` of the optional header of the image's width: PE32 at byte 96 + 8 x index, PE32+ at
// 112 + 8 x index. The header's own count of entries is not consulted: a loader may ignore it. QERR_NOT_FOUND when the
// entry lies outside the headers that are held, QERR_ARG1 without an image; address and size are then 0.
[[nodiscard]] qerr_t blib_bin_get_directory(const blib_bin* image, std::uint32_t index, std::uint32_t* address,
                                            std::uint32_t* size) noexcept;

// Number of sections in the reachable table (0 when there is none), and one of them; false past the end.
[[nodiscard]] std::uint32_t blib_bin_section_count(const blib_bin* image) noexcept;
[[nodiscard]] bool blib_bin_get_section(const blib_bin* image, std::uint32_t index, blib_section* section) noexcept;

// The file header's characteristics.
[[nodiscard]] std::uint16_t blib_bin_characteristics(const blib_bin* image) noexcept;

// 1 when the file begins with "MZ", else 0: every DOS, 16-bit, 32-bit and 64-bit executable.
[[nodiscard]] std::uint32_t blib_bin_is_16bit_by_handle(qfile_t file) noexcept;

// One file, opened once for all that is said about it, so that its parts cannot come from different files; with its
// image once it was found to hold one.
struct blib_file {
  QfileOwner file;
  BlibBinByHandleOwner image;  // borrows the file
  // Of an open that failed. It is not tried again: waiting for another process or a server is done once a file.
  qerr_t open_code = QERR_OK;
  void reset() noexcept {
    image.reset();
    file.reset();
    open_code = QERR_OK;
  }
};

// Opens `path` for reading, unless that was done or has failed before. QERR_ARG2 without a path, or the open's code.
[[nodiscard]] qerr_t blib_file_open(blib_file& opened, const qchar* path) noexcept;
// blib_bin_open with a file that may be open already, or whose image is. The file stays open when it holds no image.
[[nodiscard]] qerr_t blib_file_open_image(blib_file& opened, const qchar* path) noexcept;
