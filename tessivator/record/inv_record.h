// The information record of one file: type, digests, size, times, version strings, installer or not, signers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/qlib/qcksum.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// Type flags and image kinds, as the file type check (scan/scan_filetype.h) gives them.
inline constexpr std::uint16_t INV_TYPE_IMAGE32 = 0x1;
inline constexpr std::uint16_t INV_TYPE_SCRIPT = 0x2;
inline constexpr std::uint16_t INV_TYPE_IMAGE64 = 0x20;
inline constexpr std::uint16_t INV_TYPE_ACCEPTED = INV_TYPE_IMAGE32 | INV_TYPE_SCRIPT | INV_TYPE_IMAGE64;

inline constexpr std::uint32_t INV_CLASS_INSTALLER = 0x1;        // classification_flags
inline constexpr std::uint32_t INV_STATUS_MANY_CERTS = 0x10000;  // status_flags: more than INV_MAX_CERTS signers
inline constexpr std::int32_t INV_MAX_CERTS = 15;
inline constexpr std::int32_t INV_CERTS_NOT_GATHERED = -1;

// Where a signer was found.
inline constexpr std::uint16_t INV_CERT_REMOVED = 0;  // only while duplicates are being removed
inline constexpr std::uint16_t INV_CERT_EMBEDDED = 1;
inline constexpr std::uint16_t INV_CERT_CATALOG = 2;
inline constexpr std::uint16_t INV_CERT_BOTH = 3;

// One distinct signer. Entries are contiguous without padding; consumers outside this library rely on the layout.
struct inv_cfci_cert {
  std::uint16_t kind;
  qcksum public_key;   // SHA-1 of the certificate's public key
  qcksum certificate;  // SHA-1 of the whole encoded certificate
};
static_assert(sizeof(inv_cfci_cert) == 134);
static_assert(offsetof(inv_cfci_cert, kind) == 0);
static_assert(offsetof(inv_cfci_cert, public_key) == 2);
static_assert(offsetof(inv_cfci_cert, certificate) == 68);

// A zeroed block, created by inv_get_cfci_alloc (inv/inv_cfci.h) and freed by the function below. Strings are null when
// the file has none; otherwise they are as in the file, including unpaired surrogates and control characters. For an
// image with the extension exe, the installer check converts OriginalFilename, FileDescription, InternalName and the
// manifest description to lower case.
struct inv_cfci_t {
  std::uint16_t type_flags;
  std::uint16_t image_kind;  // 1 library, 2 application, 4 driver
  qcksum sha1;
  void* reserved_after_sha1;
  std::int32_t cert_count;  // INV_CERTS_NOT_GATHERED, or the number of entries in `certs`
  inv_cfci_cert* certs;
  void* reserved_after_certs;
  qcksum sha256;
  void* reserved_after_sha256[2];
  std::uint32_t status_flags;
  std::uint64_t file_size;  // bytes
  qchar* FileVersion;
  qchar* OriginalFilename;
  qchar* CompanyName;
  qchar* ProductName;
  qchar* ProductVersion;
  std::uint32_t is_signed;  // 1: the image's security data directory has an address and a size
  std::uint32_t classification_flags;
  void* reserved_after_classification;
  qcksum md5;  // all zero when MD5 was not computed
  qchar* FileDescription;
  void* reserved_after_description;
  qchar* InternalName;
  qchar* manifest_description;
  // What made it an installer (utl/utl.h): a short name of the rule, of static storage; null when nothing did.
  const char* installer_rule;
};

// Frees a record and everything it owns; null is ignored.
void inv_free_cfci(inv_cfci_t* record) noexcept;
using InvCfciOwner = std::unique_ptr<inv_cfci_t, FreeWith<inv_free_cfci>>;
