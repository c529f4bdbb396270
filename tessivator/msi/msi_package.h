// An installer package that is open: looked at once, then read for its properties (msi_database.h) and its signature
// (msi_signature.h).
//
// Whether a file is a compound file, and a sound one, is decided here on every system. Its content then comes from the
// same open file, but on Windows: there the system's own readers take the path, and see no file that is not sound.
#pragma once

#include <memory>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"

class msi_package;

// Opens the package at `path`. QERR_NOT_FOUND when the file cannot be opened, is no compound file or is damaged;
// QERR_LOW_MEMORY; QERR_ARG1, QERR_ARG2.
[[nodiscard]] qerr_t msi_package_open(const qchar* path, std::shared_ptr<msi_package>* package) noexcept;
// The same over `file`, which is open at `path`. It stays the caller's, and open until the package and every handle
// that was made of it are closed; its position moves.
[[nodiscard]] qerr_t msi_package_open_file(const qchar* path, qfile_t file,
                                           std::shared_ptr<msi_package>* package) noexcept;
