// What every fuzz target has: its function gets the input's bytes, with the runtime started. The process ends when a
// check fails, and when one input takes processor time or memory out of proportion to its size. Memory is counted where
// a sanitizer counts it for us.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <span>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qtypes.h"

void fuzz(Bytes input);  // what a target defines

inline void check(bool holds) {
  if (!holds) std::abort();
}

inline std::atomic<long> bytes_live{0}, bytes_most{0};

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
// As in sanitizer/allocator_interface.h, which comes with clang alone.
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* block);
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*taken)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
inline bool count_bytes() {
  const auto taken = [](const volatile void*, std::size_t size) {
    bytes_live += static_cast<long>(size);
    if (bytes_live > bytes_most) bytes_most = bytes_live.load();
  };
  const auto freed = [](const volatile void* block) {
    bytes_live -= static_cast<long>(__sanitizer_get_allocated_size(block));
  };
  return __sanitizer_install_malloc_and_free_hooks(taken, freed) != 0;
}
#else
inline bool count_bytes() { return true; }
#endif

inline void require(const char* what, double spent, double most) {
  if (spent <= most) return;
  std::fprintf(stderr, "%.1f %s, where at most %.1f are due to the input's size\n", spent, what, most);
  std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = qlib_lib_init_basic() == 0 && count_bytes();
  check(started);
  qlog_console_off();
  qlib_set_standalone(true);
  bytes_live = bytes_most = 0;
  const std::clock_t start = std::clock();
  fuzz(std::as_bytes(std::span(data, size)));
  const auto input = static_cast<double>(size);
  require("seconds", static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 5 + 1e-5 * input);
  require("bytes", static_cast<double>(bytes_most), (32U << 20) + 32 * input);
  return 0;
}
