// Signatures: DER-encoded PKCS#7 (RFC 2315) decoded, and the certificates chosen from them.
#pragma once

#include "common/qlib/qtypes.h"

struct sgn_cert_name;    // sgn_x509.h
struct sgn_store_cache;  // sgn_cache.h

// A decoded PKCS#7 structure. Owned by whoever received it; used by one thread at a time.
struct sgn_p7;

// Releases a decoded structure; null is allowed.
void sgn_p7_free(sgn_p7* p7) noexcept;

// Decodes the PKCS#7 structure at the start of `length` bytes; what follows it is ignored. Returns 12 without memory,
// or all bits set when the bytes are not such a structure. `cache` may be null.
[[nodiscard]] qerr_t sgn_decrypt_certificate_ex(const std::byte* buffer, std::uint32_t length, sgn_p7** out,
                                                sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_decrypt_certificate(const std::byte* buffer, std::uint32_t length, sgn_p7** out) noexcept;

// Names and stores the certificates of a decoded structure; arguments, file names and the list are those of
// sgn_x509_get_certnames_and_store_certs (sgn_x509.h). A structure that is neither signed data nor signed and enveloped
// data, or carries no certificates or no signers, gives 0 and no names; a signer whose certificate is not in the
// structure is skipped. Returns a naming error, which ends the work, or 0. `*out_names` is null unless 0 is returned.
[[nodiscard]] qerr_t sgn_process_p7_and_store_cert_ex(sgn_p7* p7, const qchar* output_directory,
                                                      sgn_cert_name** out_names, std::uint32_t database_flag,
                                                      std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_process_p7_and_store_cert(sgn_p7* p7, const qchar* output_directory, sgn_cert_name** out_names,
                                                   std::uint32_t database_flag, std::uint32_t all_flag) noexcept;
