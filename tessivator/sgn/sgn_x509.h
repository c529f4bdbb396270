// Certificates of a file's signature: found, named, written as PEM files, and handed back as a list of names.
//
// A certificate file is named by its stem and ".cer". The stem is the SHA-256, as 64 lower-case hexadecimal digits, of
// the issuer name's one-line text (sgn_oneline.h; it does not depend on the OpenSSL that is linked) followed by the
// serial number's content bytes; equal stems mean equal issuer and serial. The file holds the certificate in RFC 7468
// form with LF line ends. Files are written whole: a temporary name beside the target, then a rename, so that a link at
// the target is replaced and half a certificate never stands there. The output directory is never created.
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

// Extracts the certificates of an executable image's attribute certificate table, or of an installer package, writes
// each into `output_directory` (null: the internal directory of sgn_get_internal_dir_alloc) and hands out their names:
// the certificates of a later table entry stand before those of an earlier one.
//
//   database_flag  0 in this product
//   all_flag       0: the signers' own certificates; other: every certificate that the signature carries
//   cache          of the request, or null
//
// Returns the image's or the package's code (QERR_NOT_FOUND for a file that is neither, or is not signed), or the
// decoding result of the last table entry: QERR_ALL_BITS when it cannot be decoded (sgn_pkcs7.h), QERR_LOW_MEMORY. A
// file with entries that cannot be decoded is named in one warning. `*out_names` gets what was named and stored,
// whatever is returned; a certificate whose file cannot be written is logged and stays in the list.
[[nodiscard]] qerr_t sgn_x509_get_certnames_and_store_certs_ex(const qchar* path, const qchar* output_directory,
                                                               sgn_cert_name** out_names, std::uint32_t database_flag,
                                                               std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_get_certnames_and_store_certs(const qchar* path, const qchar* output_directory,
                                                            sgn_cert_name** out_names, std::uint32_t database_flag,
                                                            std::uint32_t all_flag) noexcept;

// The same for what the caller has open already and keeps: an image, or a package (null: the file is neither). `path`
// is the full path of the file; it is only named in log lines.
[[nodiscard]] qerr_t sgn_x509_store_certs_of_image(blib_bin* image, const qchar* path, const qchar* output_directory,
                                                   sgn_cert_name** out_names, std::uint32_t all_flag,
                                                   sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_store_certs_of_package(msi_package* package, const qchar* path,
                                                     const qchar* output_directory, sgn_cert_name** out_names,
                                                     std::uint32_t all_flag, sgn_store_cache* cache) noexcept;
[[nodiscard]] qerr_t sgn_x509_store_certs_of_signature(Bytes signature, const qchar* path,
                                                       const qchar* output_directory, sgn_cert_name** out_names,
                                                       std::uint32_t all_flag, sgn_store_cache* cache) noexcept;

// Writes one certificate into its file. `database` and `flags` choose a signer database that this product does not
// have; both are ignored. Returns the naming error, QERR_LOW_MEMORY, or the file's code when it could not be opened; a
// failed write is logged and gives 0.
[[nodiscard]] qerr_t sgn_store_x509(x509_st* certificate, const qchar* output_directory, void* database,
                                    std::uint32_t flags) noexcept;

// What sgn_get_qsha_issuer_serial is asked for; both may be combined.
inline constexpr std::uint32_t SGN_QSHA_SHA1 = 2;
inline constexpr std::uint32_t SGN_QSHA_SHA256 = 4;

// Digest texts of issuer text and serial number: 40 digits into `*sha1_text` (SGN_QSHA_SHA1), 64 into `*sha256_text`
// (SGN_QSHA_SHA256). A text that is not asked for may have a null pointer. Texts are freed with qmem_free. Returns
// QERR_ARG1 or QERR_ARG2 for a missing issuer or serial, QERR_ARG3 or QERR_ARG4 for a missing place of a text,
// QERR_INVALID for a negative serial length, QERR_LOW_MEMORY, or the digest's code.
[[nodiscard]] qerr_t sgn_get_qsha_issuer_serial(const char* issuer, const asn1_string_st* serial, qchar** sha1_text,
                                                qchar** sha256_text, std::uint32_t which) noexcept;
