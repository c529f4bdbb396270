// Memory that crosses component borders: `_alloc` results are made here and freed with qmem_free.
#pragma once

#include <memory>

#include "common/qlib/qtypes.h"

// `size` bytes, uninitialised; null when memory runs out (callers turn null into QERR_LOW_MEMORY). A size of 0 gives a
// valid block.
[[nodiscard]] void* qmem_alloc(std::size_t size) noexcept;

// count x size bytes, zero-filled; null when memory runs out or the product does not fit.
[[nodiscard]] void* qmem_calloc(std::size_t count, std::size_t size) noexcept;

// Releases what the two above returned; null is allowed.
void qmem_free(void* pointer) noexcept;

// Fill with zeros, copy (regions must not overlap). Both return the destination.
void* qmem_zero(void* buffer, std::size_t size) noexcept;
void* qmem_copy(void* destination, const void* source, std::size_t size) noexcept;

// Overwrites `size` bytes in a way that the compiler keeps: for passwords.
void qmem_wipe(void* buffer, std::size_t size) noexcept;

// Deleter for std::unique_ptr over a C-style free function.
template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* pointer) const noexcept {
    (void)Free(pointer);
  }
};

// Owner of an `_alloc` result.
template <class T>
using QmemPtr = std::unique_ptr<T, FreeWith<qmem_free>>;
