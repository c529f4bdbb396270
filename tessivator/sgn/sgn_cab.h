// Signatures of cabinet files. A signed cabinet names the place of its signature in the header's per-cabinet reserve.
#pragma once

#include "common/qlib/qerr.h"
#include "common/qlib/qtypes.h"

struct blib_file;        // blib_bin.h
struct sgn_p7;           // sgn_pkcs7.h; freed with sgn_p7_free
struct sgn_store_cache;  // sgn_cache.h

// Finds, reads and decodes the signature of a cabinet. Returns QERR_INVALID for a file that is no cabinet or has no
// signature record, QERR_LOW_MEMORY, QERR_ALL_BITS when the signature cannot be decoded (sgn_pkcs7.h), or the file's
// code. Every failure is logged.
[[nodiscard]] qerr_t sgn_extract_cab_cert_alloc(const qchar* path, sgn_p7** out) noexcept;
// The same for a file that may be open already, wherever it stands; else it is opened. `cache` may be null.
[[nodiscard]] qerr_t sgn_extract_cab_cert_of_file_alloc(const qchar* path, blib_file& opened, sgn_p7** out,
                                                        sgn_store_cache* cache) noexcept;
