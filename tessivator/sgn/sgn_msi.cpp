#include "sgn/sgn_msi.h"

#include "common/qlib/qlog.h"
#include "msi/msi_signature.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

#define MSI_LOG(level, ...) QLOG_AS(level, "sgn_msi_get_cert_buf_alloc", __VA_ARGS__)

// Reads with `read`, between the lines that say so.
template <class Read>
qerr_t read_logged(const qchar* path, std::byte** out, std::uint32_t* length, Read read) noexcept {
  MSI_LOG(QLOG_FNENTRY, u"Extracting certificate from file [%s]", path);
  std::byte* buffer = nullptr;
  std::uint32_t size = 0;
  const qerr_t code = read(&buffer, &size);
  if (code == QERR_OK) {
    *out = buffer;
    *length = size;
  }
  MSI_LOG(QLOG_FNEXIT, u"Certificate extraction from file [%s] completed with size [%d]. err = %d", path, size, code);
  return code;
}

}  // namespace

qerr_t sgn_msi_get_cert_buf_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  return read_logged(path, out, length, [path](std::byte** buffer, std::uint32_t* size) noexcept {
    return msi_get_signature_alloc(path, buffer, size);
  });
}

qerr_t sgn_msi_get_package_cert_buf_alloc(msi_package* package, const qchar* path, std::byte** out,
                                          std::uint32_t* length) noexcept {
  if (path == nullptr) return QERR_ARG2;
  if (out == nullptr) return QERR_ARG3;
  if (length == nullptr) return QERR_ARG4;
  return read_logged(path, out, length, [package](std::byte** buffer, std::uint32_t* size) noexcept {
    return msi_package_get_signature_alloc(package, buffer, size);
  });
}
