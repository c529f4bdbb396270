// The certificates of one file: from its signatures to names and files.
#include "sgn/sgn_x509.h"

#include <algorithm>

#include "blib/blib_bin.h"
#include "blib/blib_cert.h"
#include "common/qlib/qlog.h"
#include "sgn/sgn_msi.h"
#include "sgn/sgn_names.h"
#include "sgn/sgn_pkcs7.h"
#include "utl/utl_user.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

#define FILE_LOG(level, ...) QLOG_AS(level, "sgn_x509_get_certnames_and_store_certs", __VA_ARGS__)

namespace {

// An entry that is told by these two together holds its maker's own data, not a signature.
constexpr std::uint16_t private_revision = 0xC102;
constexpr std::uint16_t private_type = 0xABFF;

// One signature of a file, borrowed from what the file's reader handed out.
struct Blob {
  const std::byte* data = nullptr;
  std::uint32_t length = 0;
  std::uint16_t revision = 0;
  std::uint16_t type = 0;
};

using ImagePtr = std::unique_ptr<blib_bin, FreeWith<blib_bin_close>>;
using TablePtr = std::unique_ptr<blib_authenticode_list, FreeWith<blib_bin_free_authenticode_signature_buf>>;
using P7Ptr = std::unique_ptr<sgn_p7, FreeWith<sgn_p7_free>>;

// Decodes and processes signatures in table order. What becomes of a decoded one is logged where it happens and does
// not change the result, which is the decoding of the last.
qerr_t process_blobs(const qchar* path, std::span<const Blob> blobs, const sgn_request& request, SgnNameList& names) {
  FILE_LOG(QLOG_DETAIL, u"Found %d PKCS7 to verify in %s\n", blobs.size(), path);
  qerr_t code = QERR_OK;
  for (const Blob& blob : blobs) {
    if (blob.revision == private_revision && blob.type == private_type) continue;
    sgn_p7* p7 = nullptr;
    code = sgn_decrypt_certificate_ex(blob.data, blob.length, &p7, request.cache);
    const P7Ptr owner(p7);
    if (code == QERR_OK) (void)sgn_process_p7(*p7, request, names);
  }
  return code;
}

void log_start(const qchar* path) noexcept { FILE_LOG(QLOG_DETAIL, u"Trying to extracing certs from %s\n", path); }

void log_no_table(const qchar* path) noexcept {
  FILE_LOG(QLOG_ERROR, u"Failed to get Authenticode Info from %s", path);
}

qerr_t process_image(const qchar* path, blib_bin* image, const sgn_request& request, SgnNameList& names) {
  blib_authenticode_list* list = nullptr;
  const qerr_t code = blib_bin_get_authenticode_signature_buf_alloc(image, &list);
  const TablePtr table(list);
  if (code != QERR_OK) {
    log_no_table(path);
    return code;
  }
  std::vector<Blob> blobs;
  blobs.reserve(table->count);
  for (std::uint32_t i = 0; i < table->count; ++i) {
    const auto& entry = table->entries[i];
    blobs.push_back({entry.buffer, entry.length, entry.revision, entry.type});
  }
  return process_blobs(path, blobs, request, names);
}

qerr_t process_signature(const qchar* path, Bytes signature, const sgn_request& request, SgnNameList& names) {
  const Blob blob{signature.data(), static_cast<std::uint32_t>(std::min<std::size_t>(signature.size(), UINT32_MAX))};
  return process_blobs(path, {&blob, 1}, request, names);
}

qerr_t process_package(const qchar* path, const sgn_request& request, SgnNameList& names) {
  std::byte* buffer = nullptr;
  std::uint32_t length = 0;
  const qerr_t code = sgn_msi_get_cert_buf_alloc(path, &buffer, &length);
  const QmemPtr<std::byte> owner(buffer);
  return code != QERR_OK ? code : process_signature(path, {buffer, length}, request, names);
}

// A file that opens as an image is one; every other is asked for a package's signature.
qerr_t process_file(const qchar* given_path, const sgn_request& request, SgnNameList& names) {
  qchar* path = nullptr;
  if (const qerr_t code = utl_get_full_long_name_alloc(given_path, &path); code != QERR_OK) return code;
  const QmemPtr<qchar> path_owner(path);
  log_start(path);
  blib_bin* image = nullptr;
  if (blib_bin_open(path, &image, QFILE_READ, 0) != QERR_OK) return process_package(path, request, names);
  const ImagePtr image_owner(image);
  return process_image(path, image, request, names);
}

// Runs `body` with an empty list, and hands the list out.
template <class Body>
qerr_t with_names(sgn_cert_name** out_names, Body&& body) noexcept {
  *out_names = nullptr;
  return sgn_guarded([&] {
    SgnNameList names;
    const qerr_t code = body(names);
    if (code == QERR_OK) *out_names = names.release();
    return code;
  });
}

}  // namespace

qerr_t sgn_x509_get_certnames_and_store_certs_ex(const qchar* path, const qchar* output_directory,
                                                 sgn_cert_name** out_names, std::uint32_t /*database_flag*/,
                                                 std::uint32_t all_flag, sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out_names == nullptr) return QERR_ARG3;
  return with_names(out_names, [&](SgnNameList& names) {
    return process_file(path, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_store_certs_of_image(blib_bin* image, const qchar* path, const qchar* output_directory,
                                     sgn_cert_name** out_names, std::uint32_t all_flag,
                                     sgn_store_cache* cache) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (path == nullptr) return QERR_ARG2;
  if (out_names == nullptr) return QERR_ARG4;
  log_start(path);
  return with_names(out_names, [&](SgnNameList& names) {
    return process_image(path, image, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_store_certs_of_signature(Bytes signature, const qchar* path, const qchar* output_directory,
                                         sgn_cert_name** out_names, std::uint32_t all_flag,
                                         sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG2;
  if (out_names == nullptr) return QERR_ARG4;
  log_start(path);
  return with_names(out_names, [&](SgnNameList& names) {
    return process_signature(path, signature, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_get_certnames_and_store_certs(const qchar* path, const qchar* output_directory,
                                              sgn_cert_name** out_names, std::uint32_t database_flag,
                                              std::uint32_t all_flag) noexcept {
  return sgn_x509_get_certnames_and_store_certs_ex(path, output_directory, out_names, database_flag, all_flag, nullptr);
}
