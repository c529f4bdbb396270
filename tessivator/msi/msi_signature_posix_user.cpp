#include "msi/msi_signature.h"

#include <new>

#include "msi/signature_stream.h"

qerr_t msi_get_signature_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  QmemPtr<std::byte> bytes;
  std::uint32_t size = 0;
  const qerr_t code = signature_stream_read(msi_open_file(path), bytes, size);
  if (code != QERR_OK) return code;
  *out = bytes.release();
  *length = size;
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}
