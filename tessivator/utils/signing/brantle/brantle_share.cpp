#include "utils/signing/brantle/brantle_share.h"

#include <atomic>

namespace {

std::atomic<const brantle_share_operations*> replaced{nullptr};

const brantle_share_operations& operations() noexcept {
  const brantle_share_operations* own = replaced.load(std::memory_order_acquire);
  return own != nullptr ? *own : brantle_share_platform_operations();
}

}  // namespace

void brantle_share_set_operations(const brantle_share_operations* own) noexcept {
  replaced.store(own, std::memory_order_release);
}

std::uint32_t brantle_share_connect(const brantle_share_use& use, std::uint32_t* bad_argument) noexcept {
  *bad_argument = 0;
  return operations().connect(use, bad_argument);
}

std::uint32_t brantle_share_disconnect(const std::u16string& remote) noexcept {
  return operations().disconnect(remote);
}
