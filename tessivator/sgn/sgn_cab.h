// Signatures of cabinet files. The per-cabinet reserve in the header gives the place of the signature.
#pragma once

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qtypes.h"

struct blib_file;        // blib_bin.h
struct sgn_p7;           // sgn_pkcs7.h; freed with sgn_p7_free
struct sgn_store_cache;  // sgn_cache.h

// Finds, reads and decodes the signature of a cabinet. Returns QERR_INVALID for a file that is no cabinet or has no
// signature record, QERR_LOW_MEMORY, QERR_ALL_BITS when the signature cannot be decoded (sgn_pkcs7.h), or the code of
// the file. Every failure is logged.
[[nodiscard]] qerr_t sgn_extract_cab_cert_alloc(const qchar* path, sgn_p7** out) noexcept;
// The same for a file that may be open already, at any position; else it is opened. `cache` may be null.
[[nodiscard]] qerr_t sgn_extract_cab_cert_of_file_alloc(const qchar* path, blib_file& opened, sgn_p7** out,
                                                        sgn_store_cache* cache) noexcept;
// Reads the bytes of a cabinet's signature, as far as the file has them, into a buffer that the caller frees with
// qmem_free; of one over 16 MiB, which is not decoded, nothing, and `*length` alone tells. Codes as above; nothing is
// logged. The file's position moves.
[[nodiscard]] qerr_t sgn_cab_read_signature_alloc(qfile_t file, std::byte** out, std::uint32_t* length) noexcept;
