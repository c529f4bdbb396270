// The certificates of one file: from its signatures to names and files.
#include "sgn/sgn_x509.h"

#include "blib/blib_bin.h"
#include "blib/blib_cert.h"
#include "common/qlib/qlimits.h"
#include "common/qlib/qlog.h"
#include "msi/msi_package.h"
#include "sgn/sgn_msi.h"
#include "sgn/sgn_names.h"
#include "sgn/sgn_pkcs7.h"
#include "utl/utl_user.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

#define FILE_LOG(level, ...) QLOG_AS(level, "sgn_x509_get_certnames_and_store_certs", __VA_ARGS__)

namespace {

// The extraction of one file.
class extraction {
 public:
  extraction(const qchar* path, const sgn_request& request, sgn_name_list& names)
      : path_(path), source_(std::make_shared<const std::u16string>(path)), request_(request), names_(names) {}

  // Decodes and processes one signature. Failures after decoding are logged and do not change the result, which is that
  // of decoding.
  qerr_t take(Bytes signature) {
    sgn_p7* decoded = nullptr;
    const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(signature.size(), UINT32_MAX));
    const qerr_t code = sgn_decrypt_certificate_ex(signature.data(), length, &decoded, request_.cache);
    const SgnP7Owner p7(decoded);
    ++taken_;
    if (code != QERR_OK) {
      ++undecodable_;
      return code;
    }
    p7->source = source_;
    (void)sgn_process_p7(*p7, request_, names_);
    return code;
  }

  // Called at the end.
  void warn() const noexcept {
    if (names_.is_cut()) {
      FILE_LOG(QLOG_WARNING, u"Only the first %zu certificates of %s are taken\n", QLIMIT_NAMES_OF_A_FILE, path_);
    }
    if (undecodable_ == 0) return;
    FILE_LOG(QLOG_WARNING, u"%u of %u signatures of %s cannot be decoded\n", undecodable_, taken_, path_);
  }

 private:
  const qchar* path_;
  sgn_source source_;
  const sgn_request& request_;
  sgn_name_list& names_;
  std::uint32_t taken_ = 0;
  std::uint32_t undecodable_ = 0;
};

void log_start(const qchar* path) noexcept { FILE_LOG(QLOG_DETAIL, u"Trying to extracing certs from %s\n", path); }

void log_no_table(const qchar* path) noexcept {
  FILE_LOG(QLOG_ERROR, u"Failed to get Authenticode Info from %s", path);
}

// In table order; one signature in memory at a time. The result is that of the last one.
qerr_t process_image(const qchar* path, blib_bin* image, const sgn_request& request, sgn_name_list& names) {
  blib_authenticode_list* list = nullptr;
  qerr_t code = blib_bin_get_authenticode_table_alloc(image, &list);
  const BlibAuthenticodeOwner table(list);
  if (code != QERR_OK) {
    log_no_table(path);
    return code;
  }
  FILE_LOG(QLOG_DETAIL, u"Found %d PKCS7 to verify in %s\n", table->count, path);
  extraction file(path, request, names);
  for (blib_authenticode_entry& entry : std::span(table->entries, table->count)) {
    if (entry.revision == SGN_PRIVATE_REVISION && entry.type == SGN_PRIVATE_TYPE) continue;
    blib_bin_load_authenticode_entry(image, &entry);
    code = file.take({entry.buffer, entry.length});
    blib_bin_unload_authenticode_entry(&entry);
    if (names.is_cut()) break;
  }
  file.warn();
  return code;
}

qerr_t process_signature(const qchar* path, Bytes signature, const sgn_request& request, sgn_name_list& names) {
  FILE_LOG(QLOG_DETAIL, u"Found %d PKCS7 to verify in %s\n", 1, path);
  extraction file(path, request, names);
  const qerr_t code = file.take(signature);
  file.warn();
  return code;
}

qerr_t process_package(const qchar* path, msi_package* package, const sgn_request& request, sgn_name_list& names) {
  std::byte* buffer = nullptr;
  std::uint32_t length = 0;
  const qerr_t code = sgn_msi_get_package_cert_buf_alloc(package, path, &buffer, &length);
  const QmemPtr<std::byte> owner(buffer);
  return code != QERR_OK ? code : process_signature(path, {buffer, length}, request, names);
}

// A file that opens as an image is one; any other is tried as a package.
qerr_t process_file(const qchar* given_path, const sgn_request& request, sgn_name_list& names) {
  qchar* path = nullptr;
  if (const qerr_t code = utl_get_full_long_name_alloc(given_path, &path); code != QERR_OK) return code;
  const QmemPtr<qchar> path_owner(path);
  log_start(path);
  blib_file opened;
  if (blib_file_open_image(opened, path) == QERR_OK) return process_image(path, opened.image.get(), request, names);
  std::shared_ptr<msi_package> package;
  if (opened.open_code == QERR_OK) (void)msi_package_open_file(path, opened.file.get(), &package);
  return process_package(path, package.get(), request, names);
}

// Runs `body` with an empty list and returns the list.
template <class Body>
qerr_t with_names(sgn_cert_name** out_names, Body&& body) noexcept {
  *out_names = nullptr;
  return sgn_guarded([&] {
    sgn_name_list names;
    const qerr_t code = body(names);
    *out_names = names.release();
    return code;
  });
}

}  // namespace

qerr_t sgn_x509_get_certnames_and_store_certs_ex(const qchar* path, const qchar* output_directory,
                                                 sgn_cert_name** out_names, std::uint32_t /*database_flag*/,
                                                 std::uint32_t all_flag, sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out_names == nullptr) return QERR_ARG3;
  return with_names(out_names, [&](sgn_name_list& names) {
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
  return with_names(out_names, [&](sgn_name_list& names) {
    return process_image(path, image, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_store_certs_of_package(msi_package* package, const qchar* path, const qchar* output_directory,
                                       sgn_cert_name** out_names, std::uint32_t all_flag,
                                       sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG2;
  if (out_names == nullptr) return QERR_ARG4;
  log_start(path);
  return with_names(out_names, [&](sgn_name_list& names) {
    return process_package(path, package, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_store_certs_of_signature(Bytes signature, const qchar* path, const qchar* output_directory,
                                         sgn_cert_name** out_names, std::uint32_t all_flag,
                                         sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG2;
  if (out_names == nullptr) return QERR_ARG4;
  log_start(path);
  return with_names(out_names, [&](sgn_name_list& names) {
    return process_signature(path, signature, {output_directory, all_flag, cache}, names);
  });
}

qerr_t sgn_x509_get_certnames_and_store_certs(const qchar* path, const qchar* output_directory,
                                              sgn_cert_name** out_names, std::uint32_t database_flag,
                                              std::uint32_t all_flag) noexcept {
  return sgn_x509_get_certnames_and_store_certs_ex(path, output_directory, out_names, database_flag, all_flag, nullptr);
}
