// Ends the process when one input takes processor time or memory out of proportion to its size: the first line of
// every fuzz target. Memory is counted where a sanitizer counts it for us.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

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
#endif

class budget {
 public:
  explicit budget(std::size_t input) noexcept : input_(input) {
    static const bool counted = count_all();
    (void)counted;
    live = most = 0;
  }
  budget(const budget&) = delete;
  budget& operator=(const budget&) = delete;
  ~budget() {
    const double seconds = static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC;
    if (seconds > 5 + 1e-5 * static_cast<double>(input_)) refuse("seconds", seconds);
    if (most > static_cast<long>(32 * input_ + (32U << 20))) refuse("bytes", static_cast<double>(most));
  }

 private:
  inline static std::atomic<long> live{0}, most{0};

  [[noreturn]] void refuse(const char* what, double spent) const {
    std::fprintf(stderr, "%.1f %s for an input of %zu bytes\n", spent, what, input_);
    std::abort();
  }
#ifdef __SANITIZE_ADDRESS__
  static bool count_all() noexcept {
    const auto taken = [](const volatile void*, std::size_t size) {
      live += static_cast<long>(size);
      if (live > most) most = live.load();
    };
    const auto freed = [](const volatile void* block) {
      live -= static_cast<long>(__sanitizer_get_allocated_size(block));
    };
    return __sanitizer_install_malloc_and_free_hooks(taken, freed) != 0;
  }
#else
  static bool count_all() noexcept { return false; }
#endif

  std::size_t input_;
  std::clock_t start_ = std::clock();
};
