#include "inv/inv_cfci.h"

#include <algorithm>
#include <memory>

#include "blib/blib_bin.h"
#include "cert/cert_sign.h"
#include "cfg/cfg.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qstr.h"
#include "record/inv_version.h"
#include "scan/scan_filetype.h"
#include "utl/utl.h"

static constexpr std::uint32_t module_id = QLOG_INV;

namespace {

// Bits of the feature masks, which apply only outside standalone mode.
constexpr std::uint64_t feature_base = std::uint64_t{1} << 40;
constexpr std::uint64_t feature_installer = std::uint64_t{1} << 41;
constexpr std::uint64_t feature_record = std::uint64_t{1} << 42;

constexpr std::uint64_t product_md5 = 1;  // bit of ProdIntegrationConfig

// The record stores the result of the file type check unchanged.
static_assert(INV_TYPE_IMAGE32 == SCAN_TYPE_IMAGE32 && INV_TYPE_SCRIPT == SCAN_TYPE_SCRIPT &&
              INV_TYPE_IMAGE64 == SCAN_TYPE_IMAGE64);

bool is_feature_on(std::uint64_t feature) noexcept {
  if (qlib_get_standalone()) return true;
  const std::uint64_t enabled = cfg_FeaturesEnabled().load();
  return (cfg_FeaturesInstalled().load() & enabled & feature_base) != 0 && (enabled & feature) != 0;
}

// PE32 and PE32+ have the same directories; the image knows their place.
bool has_security_directory(const blib_bin& image) noexcept {
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  return blib_bin_get_directory(&image, BLIB_DIRECTORY_SECURITY, &address, &size) == QERR_OK && address != 0 &&
         size != 0;
}

// An image whose path cannot be copied counts as no installer.
bool is_installer(const qchar* path, blib_bin* image, inv_cfci_t& record) noexcept {
  // The check lower-cases its path argument, so it gets a copy.
  const QmemPtr<qchar> copy(qstr_dup(path));
  return copy && utl_is_installer_cfci(copy.get(), image, &record) != 0;
}

qerr_t read_versions(blib_bin* image, inv_cfci_t& record) noexcept {
  blib_res_section section{};
  if (const qerr_t code = blib_res_get_section(image, &section); code != QERR_OK) {
    QLOG_AS(QLOG_INFO, "inv_get_resource_data", u"Failed to get resource section. err = %d", code);
    return code;
  }
  std::uint32_t stop = 0;
  const qerr_t code = blib_res_walk(image, &section, BLIB_RES_VERSION, utl_res_clbk, &stop, &record, sizeof(record));
  if (code != QERR_OK) {
    QLOG_AS(QLOG_INFO, "inv_get_resource_data", u"Failed to lookup resource section. err = %d", code);
  }
  return code;
}

bool has_strings(const inv_cfci_t& record) noexcept {
  return record.CompanyName != nullptr || record.FileVersion != nullptr || record.ProductName != nullptr ||
         record.ProductVersion != nullptr || record.OriginalFilename != nullptr || record.FileDescription != nullptr ||
         record.InternalName != nullptr;
}

// One read of the file feeds all digests.
qerr_t compute_digests(const qchar* path, qfile_t file, const qcksum_tap* tap, inv_cfci_t& record) noexcept {
  std::uint32_t kinds = QCKSUM_SHA1 | QCKSUM_SHA256;
  if ((cfg_ProdIntegrationConfig().load() & product_md5) != 0) kinds |= QCKSUM_MD5;
  const qerr_t code = qcksum_compute_whole(kinds, file, &record.sha1, &record.md5, &record.sha256, tap);
  if (code == QERR_CKSUM_BYPASSED) {
    QLOG_AS(QLOG_DETAIL, "inv_get_cfci_alloc", u"MD5 Checksum bypassed for file %s\n", path);
    return QERR_OK;
  }
  if (code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, "inv_get_cfci_alloc", u"Failed to compute MD5 checksum of file '%s'. err = %d.\n", path, code);
  }
  return code;
}

qerr_t gather_details(const qchar* path, qfile_t file, blib_bin* image, inv_cfci_t& record,
                      std::int64_t& time) noexcept {
  // A script has no open image and fails as one, like its path.
  if (image != nullptr) {
    (void)inv_get_resource_data(path, image, &record);
  } else {
    (void)inv_get_resource_data(path, &record);
  }
  qfile_info info{};
  if (const qerr_t code = qfile_get_info(file, &info); code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, "inv_get_cfci_alloc", u"Failed to get the information for file %s. err = %d.\n", path, code);
    return code;
  }
  time = std::max(info.creation_time, info.last_write_time);
  // A file whose signers are unknown still has a record; the count shows it.
  if ((record.type_flags & INV_TYPE_SCRIPT) == 0) (void)inv_get_certificates_info_alloc(path, &record);
  const qerr_t code = qfile_size(file, &record.file_size);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, "inv_get_cfci_alloc", u"Failed to get the file size of file '%s'. err = %d.\n", path, code);
  }
  return code;
}

// Entries for the listed signers, `walked` of them. A missing hash leaves the rest of its entry zero.
void copy_signers(const cert_sign_list& list, inv_cfci_cert* certs, std::int32_t& walked) noexcept {
  walked = 0;
  for (const cert_sign_node* node = list.head; node != nullptr; node = node->next, ++walked) {
    if (walked >= list.count) continue;  // counted, for the caller to see the mismatch
    inv_cfci_cert& entry = certs[walked];
    entry.kind = node->kind;
    if (cert_utl_get_cert_pub_key_hash(node->certificate, &entry.public_key) == QERR_OK) {
      (void)cert_utl_get_cert_hash(node->certificate, &entry.certificate);
    }
  }
}

// Marks every repeat of an earlier entry as removed; returns how many remain.
std::int32_t mark_duplicates(std::span<inv_cfci_cert> certs) noexcept {
  std::int32_t unique = 0;
  for (std::size_t i = 0; i < certs.size(); ++i) {
    if (certs[i].kind == INV_CERT_REMOVED) continue;
    ++unique;
    for (std::size_t j = i + 1; j < certs.size(); ++j) {
      if (qcksum_compare(&certs[i].certificate, &certs[j].certificate) == 0) continue;
      if (certs[i].kind != certs[j].kind) certs[i].kind = INV_CERT_BOTH;
      certs[j].kind = INV_CERT_REMOVED;
    }
  }
  return unique;
}

}  // namespace

qerr_t inv_get_resource_data(const qchar* path, blib_bin* image, inv_cfci_t* record) noexcept {
  if (image == nullptr) return QERR_OK;
  record->is_signed = has_security_directory(*image) ? 1 : 0;
  if (is_feature_on(feature_installer) && is_installer(path, image, *record)) {
    record->classification_flags |= INV_CLASS_INSTALLER;
  }
  if (record->classification_flags != 0) return QERR_OK;
  // The installer check walked the same resources: what it found, a second walk would find again and leave alone.
  return has_strings(*record) ? QERR_OK : read_versions(image, *record);
}

qerr_t inv_get_resource_data(const qchar* path, inv_cfci_t* record) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (record == nullptr) return QERR_ARG2;
  blib_bin* opened = nullptr;
  if (const qerr_t code = blib_bin_open(path, &opened, BLIB_READ, 0); code != QERR_OK) return code;
  const BlibBinOwner image(opened);
  return inv_get_resource_data(path, image.get(), record);
}

qerr_t inv_get_certificates_info_deduped(inv_cfci_t* record) noexcept {
  if (record == nullptr) return QERR_INVALID;
  const std::int32_t total = record->cert_count;
  if (total < 2) return QERR_OK;
  if (record->certs == nullptr) {
    QLOG(QLOG_ERROR, u"Assertion failed: %s\n", u"record->certs != nullptr");
    return QERR_OK;
  }
  const std::span<inv_cfci_cert> all(record->certs, static_cast<std::size_t>(total));
  const std::int32_t unique = mark_duplicates(all);
  QLOG(QLOG_INFO, u"Number of total certs: %d and duplicate certs: %d.", total, total - unique);
  if (unique == total) return QERR_OK;

  QmemPtr<inv_cfci_cert> kept(
      static_cast<inv_cfci_cert*>(qmem_calloc(static_cast<std::size_t>(unique), sizeof(inv_cfci_cert))));
  if (!kept) return QERR_LOW_MEMORY;
  const inv_cfci_cert* const end = std::copy_if(
      all.begin(), all.end(), kept.get(), [](const inv_cfci_cert& entry) { return entry.kind != INV_CERT_REMOVED; });
  if (end - kept.get() != unique) QLOG(QLOG_ERROR, u"Assertion failed: %s\n", u"copied == unique");
  qmem_free(record->certs);
  record->certs = kept.release();
  record->cert_count = unique;
  return QERR_OK;
}

qerr_t inv_get_certificates_info_alloc(const qchar* path, inv_cfci_t* record) noexcept {
  if (path == nullptr || record == nullptr) return QERR_INVALID;
  cert_sign_list list;
  const qerr_t found = cert_sign_get_signed_file_cert_context(path, record->is_signed, &list);
  const CertSignListOwner owner(&list);
  if (found != QERR_OK || list.count < 0) {
    QLOG(QLOG_INFO, u"Failed to extract certificates from file %s, error = %d.\n", path, found);
    return found != QERR_OK ? found : QERR_ALL_BITS;
  }
  qmem_free(record->certs);
  record->certs = nullptr;
  record->cert_count = INV_CERTS_NOT_GATHERED;
  if (list.count == 0) {
    QLOG(QLOG_INFO, u"No certificate extracted from file %s.\n", path);
    record->cert_count = 0;
    return QERR_OK;
  }

  QmemPtr<inv_cfci_cert> certs(
      static_cast<inv_cfci_cert*>(qmem_calloc(static_cast<std::size_t>(list.count), sizeof(inv_cfci_cert))));
  if (!certs) {
    QLOG(QLOG_ERROR, u"Failed to allocate memory to store extracted certificates from file %s.\n", path);
    return QERR_LOW_MEMORY;
  }
  std::int32_t walked = 0;
  copy_signers(list, certs.get(), walked);
  if (walked != list.count) {
    QLOG(QLOG_ERROR, u"Mismatch in number of certificates extracted for file %s. num_certs = %d and idx = %d.", path,
         list.count, walked);
    return QERR_ALL_BITS;
  }
  record->certs = certs.release();
  record->cert_count = list.count;
  const qerr_t deduped = inv_get_certificates_info_deduped(record);
  QLOG(QLOG_INFO, u"File: %s has %d unique certificates.", path, record->cert_count);
  if (record->cert_count > INV_MAX_CERTS) {
    record->status_flags |= INV_STATUS_MANY_CERTS;
    QLOG(QLOG_SYSTEM, u"File %s has %d certificates. Maximum limit %d. No kernel syncing of the certificates.", path,
         list.count, INV_MAX_CERTS);
  }
  return deduped;
}

qerr_t inv_get_cfci_alloc(const qchar* path, inv_cfci_t** out, std::int64_t* out_time,
                          std::uint32_t compute_md5) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  blib_file opened;
  return inv_get_cfci_of_file_alloc(path, opened, out, out_time, compute_md5);
}

qerr_t inv_get_cfci_of_file_alloc(const qchar* path, blib_file& opened, inv_cfci_t** out, std::int64_t* out_time,
                                  std::uint32_t compute_md5, const inv_digest_watch* watch) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG3;
  if (const qerr_t code = blib_file_open(opened, path); code != QERR_OK) {
    QLOG_AS(QLOG_INFO, "inv_get_cfci_alloc", u"Failed to open file '%s' for computing cfci information. err = %d", path,
            code);
    return code;
  }
  const qfile_t file = opened.file.get();
  std::uint32_t type = 0;
  std::uint32_t kind = 0;
  blib_bin* image = nullptr;
  if (const qerr_t code = scan_get_file_type_keep_image(file, path, &type, &kind, &image); code != QERR_OK) return code;
  opened.image.reset(image);
  if ((type & INV_TYPE_ACCEPTED) == 0) return QERR_BAD_IMAGE;

  InvCfciOwner record(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
  if (!record) return QERR_LOW_MEMORY;
  record->type_flags = static_cast<std::uint16_t>(type);
  record->image_kind = static_cast<std::uint16_t>(kind);
  record->cert_count = INV_CERTS_NOT_GATHERED;
  if (compute_md5 != 0) {
    const qcksum_tap* const tap = watch != nullptr && image != nullptr ? watch->begin(watch->context, image) : nullptr;
    if (const qerr_t code = compute_digests(path, file, tap, *record); code != QERR_OK) return code;
  }
  std::int64_t time = 0;
  if (is_feature_on(feature_record)) {
    if (const qerr_t code = gather_details(path, file, image, *record, time); code != QERR_OK) return code;
    if (out_time != nullptr) *out_time = time;
  }
  *out = record.release();
  return QERR_OK;
}
