// Decodes signatures: DER-encoded PKCS#7 (RFC 2315), and the certificates selected from them.
#pragma once

#include <memory>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

struct sgn_cert_name;    // sgn_cert_names.h
struct sgn_store_cache;  // sgn_cache.h

// A decoded PKCS#7 structure. The receiver owns it; one thread at a time.
struct sgn_p7;

// Frees a decoded structure; null is ignored.
void sgn_p7_free(sgn_p7* p7) noexcept;
using SgnP7Owner = std::unique_ptr<sgn_p7, FreeWith<sgn_p7_free>>;

// Decodes (nothing is decrypted, despite the name) the PKCS#7 structure at the start of `length` bytes; what follows it
// is ignored. Returns QERR_LOW_MEMORY, or QERR_ALL_BITS when the bytes are not such a structure, when it takes more
// than 16 MiB (of open length: when `length` does), holds more than 4,096 certificates or signers, or more than 131,072
// elements of any kind and one for each 16 of its bytes: decoding would take more than eight times its size and 16 MiB;
// a warning tells the figure. `cache` may be null.
[[nodiscard]] qerr_t sgn_decrypt_certificate_ex(const std::byte* buffer, std::uint32_t length, sgn_p7** out,
                                                sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_decrypt_certificate(const std::byte* buffer, std::uint32_t length, sgn_p7** out) noexcept;

// Names and stores the certificates of a decoded structure; arguments, file names and the list are those of
// sgn_x509_get_certnames_and_store_certs (sgn_x509.h). A structure that is neither signed data nor signed and enveloped
// data, or carries no certificates, gives 0 and no names. So does one without signers when the signers' own
// certificates are asked for; all certificates are taken without any signer too. A signer whose certificate is not in
// the structure is skipped. Returns 0, QERR_LOW_MEMORY, or a naming error, which ends the work: `*out_names` then holds
// what was named and stored before.
[[nodiscard]] qerr_t sgn_process_p7_and_store_cert_ex(sgn_p7* p7, const qchar* output_directory,
                                                      sgn_cert_name** out_names, std::uint32_t database_flag,
                                                      std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_process_p7_and_store_cert(sgn_p7* p7, const qchar* output_directory, sgn_cert_name** out_names,
                                                   std::uint32_t database_flag, std::uint32_t all_flag) noexcept;
