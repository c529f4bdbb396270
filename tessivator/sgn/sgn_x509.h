// Certificates of the signature of a file: finds them, names them, writes them as PEM files, and returns their names.
//
// A certificate file is named by its stem and ".cer". The stem is the SHA-256, as 64 lower-case hexadecimal digits, of
// the one-line text of the issuer name (sgn_oneline.h; independent of the linked OpenSSL) followed by the content bytes
// of the serial number. Equal stems mean equal issuer and serial number. The file has the form of RFC 7468 with LF line
// ends. Files are written under a temporary name beside the target and renamed: a link at the target is replaced, and
// half a certificate is never there. The output directory is never created.
#pragma once

#include "common/qlib/qerr.h"
#include "common/qlib/qtypes.h"
#include "sgn/sgn_cert_names.h"

class msi_package;       // an open package (msi/msi_package.h)
struct blib_bin;         // an open image (blib/blib_bin.h)
struct sgn_p7;           // a decoded signature (sgn_pkcs7.h)
struct sgn_store_cache;  // what one request has already decoded and written (sgn_cache.h)
struct x509_st;          // OpenSSL's X509
struct asn1_string_st;   // OpenSSL's ASN1_INTEGER

// Extracts the certificates of the attribute certificate table of an image, or of an installer package, writes each
// into `output_directory` (null: the internal directory of sgn_get_internal_dir_alloc) and returns their names: the
// certificates of a later table entry come before those of an earlier one.
//
//   database_flag  0 in this product
//   all_flag       0: only the certificates of the signers; other: every certificate of the signature
//   cache          of the request, or null
//
// Returns the code of the image or the package (QERR_NOT_FOUND for a file that is neither, or is not signed), or the
// decoding result of the last table entry: QERR_ALL_BITS when it cannot be decoded (sgn_pkcs7.h), QERR_LOW_MEMORY. One
// warning names a file with entries that cannot be decoded. `*out_names` gets everything that was named and stored,
// whatever the result; a certificate whose file cannot be written is logged and stays in the list.
[[nodiscard]] qerr_t sgn_x509_get_certnames_and_store_certs_ex(const qchar* path, const qchar* output_directory,
                                                               sgn_cert_name** out_names, std::uint32_t database_flag,
                                                               std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_get_certnames_and_store_certs(const qchar* path, const qchar* output_directory,
                                                            sgn_cert_name** out_names, std::uint32_t database_flag,
                                                            std::uint32_t all_flag) noexcept;

// The same for an open image or package, which the caller keeps (null: the file is neither). `path` is the full path of
// the file, for log lines only.
[[nodiscard]] qerr_t sgn_x509_store_certs_of_image(blib_bin* image, const qchar* path, const qchar* output_directory,
                                                   sgn_cert_name** out_names, std::uint32_t all_flag,
                                                   sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_store_certs_of_package(msi_package* package, const qchar* path,
                                                     const qchar* output_directory, sgn_cert_name** out_names,
                                                     std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_store_certs_of_signature(Bytes signature, const qchar* path,
                                                       const qchar* output_directory, sgn_cert_name** out_names,
                                                       std::uint32_t all_flag, sgn_store_cache* cache) noexcept;

// Writes one certificate to its file. `database` and `flags` select a signer database that this product does not have;
// both are ignored. Returns the naming error, QERR_LOW_MEMORY, or the code of the open; a failed write is logged and
// returns 0.
[[nodiscard]] qerr_t sgn_store_x509(x509_st* certificate, const qchar* output_directory, void* database,
                                    std::uint32_t flags) noexcept;

// Requests of sgn_get_qsha_issuer_serial; they can be combined.
inline constexpr std::uint32_t SGN_QSHA_SHA1 = 2;
inline constexpr std::uint32_t SGN_QSHA_SHA256 = 4;

// Digests of the issuer text followed by the serial number, as text: 40 digits into `*sha1_text` (SGN_QSHA_SHA1), 64
// into `*sha256_text` (SGN_QSHA_SHA256). The pointer of a text that is not requested may be null. The caller frees the
// texts with qmem_free. Returns QERR_ARG1 or QERR_ARG2 for a missing issuer or serial, QERR_ARG3 or QERR_ARG4 for a
// missing output, QERR_INVALID for a negative serial length, QERR_LOW_MEMORY, or the code of the digest.
[[nodiscard]] qerr_t sgn_get_qsha_issuer_serial(const char* issuer, const asn1_string_st* serial, qchar** sha1_text,
                                                qchar** sha256_text, std::uint32_t which) noexcept;
