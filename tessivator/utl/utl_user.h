// Canonical forms of paths, the same on both systems (in spite of the file name, this is no platform code): the full
// path, the long path (without 8.3 names), the root of the volume; and the installation directory of the service.
//
// The caller frees results with qmem_free. A missing argument gives QERR_ARG1, QERR_ARG2, QERR_ARG3 by its position;
// QERR_LOW_MEMORY when memory runs out. The result is null on failure.
#pragma once

#include "common/qlib/qfile.h"
#include "common/qlib/qtypes.h"

// Splits `path` before the first component that does not exist. `existing` is null when no part exists; `remainder`,
// without its leading separator, is null when all of `path` exists. A drive in `existing` ends with a backslash.
[[nodiscard]] qerr_t utl_split_existing_path(const qchar* path, qchar** existing, qchar** remainder) noexcept;

// The long form of the existing part of `path`, followed by the rest unchanged. A copy of `path` when the system has no
// long form; the untranslated system error when the system reports a size but then fails. `tag` is the allocation tag
// of qstr_dup.
[[nodiscard]] qerr_t utl_get_long_name_alloc(const qchar* path, qchar** result, std::uint32_t tag) noexcept;

// The full path in its long form, or the full path when there is no long form.
[[nodiscard]] qerr_t utl_get_full_long_name_alloc(const qchar* path, qchar** result) noexcept;

// The mount point of `path`: "C:\", "\\server\share\", on Linux "/" or "/mnt/disk". QERR_INVALID for a share path
// without a share.
[[nodiscard]] qerr_t utl_get_volume_path_alloc(const qchar* path, qchar** result) noexcept;

// The directory of the executable of the service, from the registry. QERR_NOT_FOUND when there is none (logged),
// QERR_ALL_BITS for a value without a backslash, QERR_INVALID for a null argument.
[[nodiscard]] qerr_t utl_get_install_dir_alloc(qchar** result) noexcept;

// Size, creation and last-write time of a file; times are local, in 100 ns since 1601.
[[nodiscard]] qerr_t utl_get_file_info(const qchar* path, qfile_info* info) noexcept;
