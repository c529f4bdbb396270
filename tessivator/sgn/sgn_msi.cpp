#include "sgn/sgn_msi.h"

#include "common/qlib/qlog.h"
#include "msi/msi_signature.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

qerr_t sgn_msi_get_cert_buf_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  QLOG(QLOG_FNENTRY, u"Extracting certificate from file [%s]", path);
  std::byte* buffer = nullptr;
  std::uint32_t size = 0;
  const qerr_t code = msi_get_signature_alloc(path, &buffer, &size);
  if (code == QERR_OK) {
    *out = buffer;
    *length = size;
  }
  QLOG(QLOG_FNEXIT, u"Certificate extraction from file [%s] completed with size [%d]. err = %d", path, size, code);
  return code;
}
