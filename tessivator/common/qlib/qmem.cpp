#include "common/qlib/qmem.h"

#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

void* qmem_alloc(std::size_t size) noexcept { return std::malloc(size == 0 ? 1 : size); }

void* qmem_calloc(std::size_t count, std::size_t size) noexcept {
  if (size != 0 && count > SIZE_MAX / size) return nullptr;
  const std::size_t total = count * size;
  return std::calloc(1, total == 0 ? 1 : total);
}

void qmem_free(void* pointer) noexcept { std::free(pointer); }

void* qmem_zero(void* buffer, std::size_t size) noexcept {
  if (size != 0) std::memset(buffer, 0, size);
  return buffer;
}

void* qmem_copy(void* destination, const void* source, std::size_t size) noexcept {
  if (size != 0) std::memcpy(destination, source, size);
  return destination;
}

void qmem_wipe(void* buffer, std::size_t size) noexcept {
  if (size != 0) OPENSSL_cleanse(buffer, size);
}
