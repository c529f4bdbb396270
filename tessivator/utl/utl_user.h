// Canonical forms of paths, common to both systems (the name notwithstanding, this is no platform part): full, long
// (no 8.3 components), the volume's root; and the service's installation directory.
//
// Results are freed with qmem_free. A missing argument gives QERR_ARG1, QERR_ARG2, QERR_ARG3 by its position, want of
// memory QERR_LOW_MEMORY; the result is null on failure.
#pragma once

#include "common/qlib/qfile.h"
#include "common/qlib/qtypes.h"

// Splits `path` before the first component that does not exist. `existing` is null when not even the first part exists;
// `remainder`, without its leading separator, is null when all of `path` does. A drive in `existing` ends in a
// backslash.
[[nodiscard]] qerr_t utl_split_existing_path(const qchar* path, qchar** existing, qchar** remainder) noexcept;

// The long form of the part of `path` that exists, and the rest as it is. When the system has no long form, a copy of
// `path`; when it gives its size but then not the form itself, the system's own untranslated error. `tag` is the
// allocation tag of qstr_dup.
[[nodiscard]] qerr_t utl_get_long_name_alloc(const qchar* path, qchar** result, std::uint32_t tag) noexcept;

// The full path in its long form, or the full path when there is no long form.
[[nodiscard]] qerr_t utl_get_full_long_name_alloc(const qchar* path, qchar** result) noexcept;

// The mount point that `path` lies under: "C:\", "\\server\share\", on Linux "/" or "/mnt/disk". QERR_INVALID for a
// share path without a share.
[[nodiscard]] qerr_t utl_get_volume_path_alloc(const qchar* path, qchar** result) noexcept;

// The directory of the service's executable, from the registry: QERR_NOT_FOUND where there is none (logged),
// QERR_ALL_BITS for a value without a backslash, QERR_INVALID for a null argument.
[[nodiscard]] qerr_t utl_get_install_dir_alloc(qchar** result) noexcept;

// Size, creation and last-write time of a file; times are local, in 100 ns since 1601.
[[nodiscard]] qerr_t utl_get_file_info(const qchar* path, qfile_info* info) noexcept;
