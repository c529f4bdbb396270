// What writer and reader need of RapidJSON: memory that fails by an exception. The library itself goes on with a null
// pointer.
#pragma once

#include <cstdlib>
#include <new>

// NOLINTBEGIN(readability-identifier-naming): the names that the library looks for
class details_json_memory {
 public:
  static const bool kNeedFree = true;
  void* Malloc(std::size_t size) { return Realloc(nullptr, 0, size); }
  void* Realloc(void* old, std::size_t, std::size_t size) {
    if (size == 0) {
      std::free(old);
      return nullptr;
    }
    void* const block = std::realloc(old, size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }
  static void Free(void* block) { std::free(block); }
};
// NOLINTEND(readability-identifier-naming)
