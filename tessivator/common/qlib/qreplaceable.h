// A platform object that a test may replace.
#pragma once

#include <atomic>

// Holds the object of a test, if any. Safe from any thread; calls in progress may still use the replaced object.
template <class T>
class qreplaceable {
 public:
  // The object of the test, or null.
  [[nodiscard]] T* own() const noexcept { return own_.load(std::memory_order_acquire); }
  // The object of the test, or that of the platform.
  [[nodiscard]] T& get(T& platform) const noexcept {
    T* const chosen = own();
    return chosen != nullptr ? *chosen : platform;
  }
  // Null restores the object of the platform.
  void replace(T* own) noexcept { own_.store(own, std::memory_order_release); }

 private:
  std::atomic<T*> own_{nullptr};
};
