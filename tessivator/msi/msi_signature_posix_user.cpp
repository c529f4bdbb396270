// There is no installer here: the signature's stream is read directly.
#include <new>

#include "msi/msi_signature.h"
#include "msi/package_object.h"
#include "msi/signature_stream.h"

qerr_t msi_package_get_signature_alloc(msi_package* package, std::byte** out, std::uint32_t* length) noexcept try {
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  if (package == nullptr) return QERR_NOT_FOUND;
  QmemPtr<std::byte> bytes;
  std::uint32_t size = 0;
  const qerr_t code = signature_stream_read(*package, bytes, size);
  if (code != QERR_OK) return code;
  *out = bytes.release();
  *length = size;
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}
