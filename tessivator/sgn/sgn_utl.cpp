#include "sgn/sgn_utl.h"

#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_oneline.h"
#include "sgn/sgn_ossl.h"
#include "utl/utl_user.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

qchar* one_line_alloc(const X509_NAME* name) noexcept {
  const sgn_error_scope errors;
  QmemPtr<qchar> wide;
  const qerr_t code = sgn_guarded([&] {
    std::string line;
    if (const qerr_t failure = sgn_oneline(name, line); failure != QERR_OK) return failure;
    const std::size_t bytes = (line.size() + 1) * sizeof(qchar);
    wide.reset(static_cast<qchar*>(qmem_alloc(bytes)));
    // The line is printable ASCII.
    return wide && qstr_from_ascii(wide.get(), bytes, line.c_str()) != nullptr ? QERR_OK : QERR_LOW_MEMORY;
  });
  return code == QERR_OK ? wide.release() : nullptr;
}

// The directory of certificate files, without a separator at its end.
qerr_t certificate_directory(const qchar* directory, std::u16string& out) {
  if (directory != nullptr) {
    out = directory;
    return QERR_OK;
  }
  qchar* internal = nullptr;
  const qerr_t code = utl_get_install_dir_alloc(&internal);
  const QmemPtr<qchar> owner(internal);
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Failed to get internal dir on system volume: err %d (0x%x): %s\n", code, code,
         qerr_get_string(code));
    return code;
  }
  out = qpath_join(internal, u"Certificates");
  return QERR_OK;
}

}  // namespace

qerr_t sgn_get_internal_dir_alloc(qchar** out, const qchar* directory, const qchar* stem) noexcept {
  if (out == nullptr) return QERR_ARG1;
  return sgn_guarded([&] {
    std::u16string folder;
    if (const qerr_t code = certificate_directory(directory, folder); code != QERR_OK) return code;
    const std::u16string name = stem == nullptr ? std::u16string() : std::u16string(stem) + u".cer";
    const std::u16string path = qpath_join(folder, name);
    qchar* const copy = qstr_dup(path.c_str());
    if (copy == nullptr) return QERR_LOW_MEMORY;
    *out = copy;
    return QERR_OK;
  });
}

qchar* sgn_get_subject_alloc(const x509_st* certificate) noexcept {
  return certificate == nullptr ? nullptr : one_line_alloc(X509_get_subject_name(certificate));
}

qchar* sgn_get_issuer_alloc(const x509_st* certificate) noexcept {
  return certificate == nullptr ? nullptr : one_line_alloc(X509_get_issuer_name(certificate));
}
