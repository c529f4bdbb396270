// The digital signature of a Windows Installer package (a compound file), as its platform hands it out.
//
// On Windows the installer's own subject interface package (msisip.dll) is asked. Elsewhere the stream
// "\005DigitalSignature" of the compound file holds the same bytes and is read directly.
#pragma once

#include "common/qlib/qerr.h"

// Hands out the DER PKCS#7 signed data of the package at `path` as `*out` (freed with qmem_free), its size in bytes as
// `*length`. Codes: 0; 2 when the package has no signature, when its signature cannot be read, or when the file is not
// a package or cannot be opened; 12; 1002 to 1004 for a missing argument; the translated system error when the
// platform's reader is missing. A file that is no compound file is told by its first eight bytes.
[[nodiscard]] qerr_t msi_get_signature_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept;
