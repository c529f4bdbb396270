// The digital signature of a Windows Installer package, as its platform hands it out.
//
// On Windows the installer's own subject interface package (msisip.dll) is asked. Elsewhere, and there too when it
// refuses a signature or one is longer than MSI_MAX_SIGNATURE, the stream "\005DigitalSignature" of the compound file
// is read directly. What follows the signed data in it is left out; a damaged signature is handed out as it is, so that
// decoding it fails.
#pragma once

#include "common/qlib/qerr.h"

class msi_package;

// No more bytes of a signature than this are read here: one that is longer than 16 MiB is never decoded.
inline constexpr std::uint32_t MSI_MAX_SIGNATURE = (16U << 20) + 1;

// Hands out the DER PKCS#7 signed data of the package at `path` as `*out` (freed with qmem_free), its size in bytes as
// `*length`. QERR_NOT_FOUND when the package has no signature or an empty one, when the file is no sound package or
// cannot be opened, or, with a log line, when the signature's sectors are damaged; QERR_LOW_MEMORY; QERR_ARG1 to
// QERR_ARG3; the translated system error when the platform's reader is missing.
[[nodiscard]] qerr_t msi_get_signature_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept;
// The same for a package that is open already (null: the file is none); codes by the same positions.
[[nodiscard]] qerr_t msi_package_get_signature_alloc(msi_package* package, std::byte** out,
                                                     std::uint32_t* length) noexcept;
