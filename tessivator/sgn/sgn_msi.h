// Signatures of installer packages.
#pragma once

#include "common/qlib/qtypes.h"

class msi_package;  // an open package (msi/msi_package.h)

// Reads the signature (DER-encoded PKCS#7) of an installer package into a buffer that the caller frees with qmem_free.
// Of one over 16 MiB, which is not decoded, the rest is left out. Returns QERR_NOT_FOUND for a package without
// a signature and for every file that is no package, QERR_LOW_MEMORY, or the code of a platform service that is
// missing.
[[nodiscard]] qerr_t sgn_msi_get_cert_buf_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept;
// The same for a package that is open already (null: the file is none). `path` is only named in log lines.
[[nodiscard]] qerr_t sgn_msi_get_package_cert_buf_alloc(msi_package* package, const qchar* path, std::byte** out,
                                                        std::uint32_t* length) noexcept;
