// The type of an open file, by its content.
#pragma once

#include "blib/blib_bin.h"

// File types and image kinds.
inline constexpr std::uint32_t SCAN_TYPE_NONE = 0;
inline constexpr std::uint32_t SCAN_TYPE_IMAGE32 = 1;
inline constexpr std::uint32_t SCAN_TYPE_SCRIPT = 2;
inline constexpr std::uint32_t SCAN_TYPE_IMAGE64 = 32;
inline constexpr std::uint32_t SCAN_KIND_OTHER = 0;
inline constexpr std::uint32_t SCAN_KIND_DLL = 1;
inline constexpr std::uint32_t SCAN_KIND_EXE = 2;
inline constexpr std::uint32_t SCAN_KIND_DRIVER = 4;

// Classifies the open file `name`; a `read_not_map` other than 0 reads it into a private buffer instead of mapping it.
// QERR_OK with type and kind; QERR_ARG1 without a handle or name, QERR_ARG4 and QERR_ARG5 without an output for type or
// kind; QERR_BAD_IMAGE for a file that is neither an image nor a script. The handle stays open.
[[nodiscard]] qerr_t scan_get_file_type_by_handle(qfile_t file, const qchar* name, std::uint32_t read_not_map,
                                                  std::uint32_t* type, std::uint32_t* kind) noexcept;

// The same, and returns the opened image (null for a script), so a caller that reads resources next need not open it
// again. The caller releases it with blib_bin_close_by_handle.
[[nodiscard]] qerr_t scan_get_file_type_keep_image(qfile_t file, const qchar* name, std::uint32_t* type,
                                                   std::uint32_t* kind, blib_bin** image) noexcept;

// 1 when the extension of the name (or the key "16bit") is that of a known script, else 0. `image_opened` says that the
// file is an image, which is never a script.
[[nodiscard]] std::uint32_t scan_is_file_script_by_handle(qfile_t file, const qchar* name, bool image_opened) noexcept;

// The database of script extensions. This product has none: the default is not initialised. A test can install its own
// (null restores the default).
struct scan_sa {
  bool (*is_initialised)();
  // QERR_EXISTS for a known script type, any other code for an unknown one.
  qerr_t (*lookup)(const qchar* key);
};
void scan_set_sa(const scan_sa* database) noexcept;
