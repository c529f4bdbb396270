// What the platform provides and a test may replace.
#pragma once

#include <atomic>

// Holds a test's object while there is one. Safe from any thread; what is replaced is still in use by calls under way.
template <class T>
class qreplaceable {
 public:
  // The test's object, or null.
  [[nodiscard]] T* own() const noexcept { return own_.load(std::memory_order_acquire); }
  // The test's object, or the platform's.
  [[nodiscard]] T& get(T& platform) const noexcept {
    T* const chosen = own();
    return chosen != nullptr ? *chosen : platform;
  }
  // Null gives the platform's back.
  void replace(T* own) noexcept { own_.store(own, std::memory_order_release); }

 private:
  std::atomic<T*> own_{nullptr};
};
