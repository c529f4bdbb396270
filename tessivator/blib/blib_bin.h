// Executable images (Portable Executable, PE32 and PE32+): opening and closing. The image is never loaded; only its
// first 8 KiB are held, everything further is read on demand.
#pragma once

#include <memory>

#include "blib/blib_headers.h"
#include "blib/blib_image.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// Access modes. Opening for editing is refused with QERR_ARG4. The two top bits of the by-handle flags select how the
// view is made.
inline constexpr std::uint32_t BLIB_READ = 4;
inline constexpr std::uint32_t BLIB_READ_WRITE = 12;
inline constexpr std::uint32_t BLIB_READ_NOT_MAP = 1U << 30;  // a private buffer instead of a mapping
inline constexpr std::uint32_t BLIB_WHOLE_FILE = 1U << 31;    // a view of the whole file

// Opens the image at `path` for reading. Callers pass BLIB_READ and extra size 0. QERR_ARG1 without a path, QERR_ARG2
// without an out pointer, QERR_ARG4 for BLIB_READ_WRITE, a file error, or a code of blib_bin_open_by_handle. `out` is
// null on failure.
[[nodiscard]] qerr_t blib_bin_open(const qchar* path, blib_bin** out, std::uint32_t mode,
                                   std::uint32_t extra_size) noexcept;

// The same for an open file. The caller keeps the file, also on success, and closes it after the record. QERR_ARG1
// without a handle, QERR_ARG3 without an out pointer, QERR_ARG4 for a mode other than BLIB_READ, QERR_LOW_MEMORY,
// QERR_BAD_IMAGE for an invalid image, QERR_EMPTY_FILE, or a file error.
[[nodiscard]] qerr_t blib_bin_open_by_handle(qfile_t file, const qchar* path, blib_bin** out, std::uint32_t flags,
                                             std::uint32_t extra_size) noexcept;

// Release the record; blib_bin_close also closes the file. Null is ignored. An error code means that the view could not
// be released; the caller cannot do anything about it.
[[nodiscard]] qerr_t blib_bin_close_by_handle(blib_bin* image) noexcept;
[[nodiscard]] qerr_t blib_bin_close(blib_bin* image) noexcept;
using BlibBinOwner = std::unique_ptr<blib_bin, FreeWith<blib_bin_close>>;  // from blib_bin_open
using BlibBinByHandleOwner =
    std::unique_ptr<blib_bin, FreeWith<blib_bin_close_by_handle>>;  // the caller closes the file

// One file and, if it is an image, its image. It is opened once, so all facts about it come from the same file.
struct blib_file {
  QfileOwner file;
  BlibBinByHandleOwner image;  // borrows the file
  // The code of a failed open. It is not retried: waiting for another process or a server must happen only once a file.
  qerr_t open_code = QERR_OK;
  void reset() noexcept {
    image.reset();
    file.reset();
    open_code = QERR_OK;
  }
};

// Opens `path` for reading, unless it is open or failed to open before. QERR_ARG2 without a path, or the code of the
// open.
[[nodiscard]] qerr_t blib_file_open(blib_file& opened, const qchar* path) noexcept;
// blib_bin_open for a file that may be open already, with or without its image. The file stays open when it is no
// image.
[[nodiscard]] qerr_t blib_file_open_image(blib_file& opened, const qchar* path) noexcept;
