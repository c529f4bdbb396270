#include "cert/cert_sign.h"

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qreplaceable.h"

static constexpr std::uint32_t module_id = QLOG_CERT;

namespace {

qreplaceable<cert_sign_module> active_module;  // none by default

}  // namespace

void cert_sign_init(cert_sign_module* module) noexcept { active_module.replace(module); }

qerr_t cert_sign_get_signed_file_cert_context(const qchar* path, std::uint32_t embedded,
                                              cert_sign_list* list) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (list == nullptr) return QERR_ARG3;
  cert_sign_module* const module = active_module.own();
  if (module == nullptr) {
    QLOG(QLOG_ERROR, u" Cert: Cert module is not initialized.");
    return QERR_ALL_BITS;
  }
  return module->find_signers(path, embedded, *list);
}

void cert_sign_release(cert_sign_list* list) noexcept {
  cert_sign_module* const module = active_module.own();
  if (module != nullptr && list != nullptr) module->release(*list);
}

qerr_t cert_utl_get_cert_pub_key_hash(const cert_context* certificate, qcksum* hash) noexcept {
  if (certificate == nullptr) return QERR_ARG1;
  if (hash == nullptr) return QERR_ARG2;
  cert_sign_module* const module = active_module.own();
  return module == nullptr ? QERR_ALL_BITS : module->public_key_hash(certificate, *hash);
}

qerr_t cert_utl_get_cert_hash(const cert_context* certificate, qcksum* hash) noexcept {
  if (certificate == nullptr) return QERR_ARG1;
  if (hash == nullptr) return QERR_ARG2;
  cert_sign_module* const module = active_module.own();
  return module == nullptr ? QERR_ALL_BITS : module->certificate_hash(certificate, *hash);
}
