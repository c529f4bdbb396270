// Memory that crosses component borders: results of `_alloc` functions come from here and are freed with qmem_free.
#pragma once

#include <memory>

#include "common/qlib/qtypes.h"

// `size` uninitialised bytes; null when memory runs out (callers turn null into QERR_LOW_MEMORY). A size of 0 gives a
// valid block.
[[nodiscard]] void* qmem_alloc(std::size_t size) noexcept;

// count x size zeroed bytes; null when memory runs out or the product overflows.
[[nodiscard]] void* qmem_calloc(std::size_t count, std::size_t size) noexcept;

// Frees a block of the two above; null is ignored.
void qmem_free(void* pointer) noexcept;

// Fill with zeros, copy (regions must not overlap). Both return the destination.
void* qmem_zero(void* buffer, std::size_t size) noexcept;
void* qmem_copy(void* destination, const void* source, std::size_t size) noexcept;

// Overwrites `size` bytes; the compiler cannot remove it. For passwords.
void qmem_wipe(void* buffer, std::size_t size) noexcept;

// A std::unique_ptr deleter for a C-style free function.
template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* pointer) const noexcept {
    (void)Free(pointer);
  }
};

// Owns an `_alloc` result.
template <class T>
using QmemPtr = std::unique_ptr<T, FreeWith<qmem_free>>;
