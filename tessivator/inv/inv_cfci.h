// Fills the information record (record/inv_record.h) of one file.
#pragma once

#include "blib/blib_bin.h"
#include "common/qlib/qcksum.h"
#include "common/qlib/qtypes.h"
#include "record/inv_record.h"

// Gathers the record of one file. On success `*out` is the caller's, to be released with inv_free_cfci, and
// `*out_time`, which may be null, holds the later of the file's creation and last-write times (local, 100 ns since
// 1601). `compute_md5`, whose name is older than what it does, asks for the digests when it is not 0: SHA-1 and
// SHA-256, and MD5 only when the product parameter ProdIntegrationConfig has bit 0 set. QERR_ARG1 without a path,
// QERR_ARG2 without an out pointer, QERR_BAD_IMAGE for a file that is neither an image nor a script, QERR_LOW_MEMORY,
// or a file error. Version strings and signers that cannot be read leave their fields empty; they never fail the
// record.
[[nodiscard]] qerr_t inv_get_cfci_alloc(const qchar* path, inv_cfci_t** out, std::int64_t* out_time,
                                        std::uint32_t compute_md5) noexcept;

// Who wants to see the bytes of an image while they are digested: `begin` is called once it is open and before the
// first of them, and may read it. It answers with what takes them, or null.
struct inv_digest_watch {
  const qcksum_tap* (*begin)(void* context, blib_bin* image) noexcept;
  void* context;
};

// The same for a file that may be open already, and stays the caller's with the image that it was found to hold.
// `watch` may be null.
[[nodiscard]] qerr_t inv_get_cfci_of_file_alloc(const qchar* path, blib_file& opened, inv_cfci_t** out,
                                                std::int64_t* out_time, std::uint32_t compute_md5,
                                                const inv_digest_watch* watch = nullptr) noexcept;

// Fills is_signed, the installer bit and the version strings from the image at `path`. Returns the code of the last
// step: opening the image, finding its resource section, walking it. For a file that cannot be mapped it succeeds and
// fills nothing.
[[nodiscard]] qerr_t inv_get_resource_data(const qchar* path, inv_cfci_t* record) noexcept;

// The same over an image that the caller opened from `path` and keeps.
[[nodiscard]] qerr_t inv_get_resource_data(const qchar* path, blib_bin* image, inv_cfci_t* record) noexcept;

// Fills the list of distinct signers by the signer lookup (cert/cert_sign.h). QERR_INVALID without an argument,
// QERR_LOW_MEMORY, or the code of the lookup (QERR_ALL_BITS when it gave none); the count is then unchanged.
[[nodiscard]] qerr_t inv_get_certificates_info_alloc(const qchar* path, inv_cfci_t* record) noexcept;

// Removes repeated certificates in place: the first of equal ones stays, with INV_CERT_BOTH when they were found in
// different ways. QERR_LOW_MEMORY when the shorter list cannot be allocated; the old list then stays, with repeats
// marked as removed.
[[nodiscard]] qerr_t inv_get_certificates_info_deduped(inv_cfci_t* record) noexcept;
