#include "utils/signing/brantle/share.h"

#include <atomic>

namespace {

std::atomic<const share_operations*> replaced{nullptr};

const share_operations& operations() noexcept {
  const share_operations* own = replaced.load(std::memory_order_acquire);
  return own != nullptr ? *own : share_platform_operations();
}

}  // namespace

void share_set_operations(const share_operations* own) noexcept { replaced.store(own, std::memory_order_release); }

std::uint32_t share_connect(const share_use& use, std::uint32_t* bad_argument) noexcept {
  *bad_argument = 0;
  return operations().connect(use, bad_argument);
}

std::uint32_t share_disconnect(const std::u16string& remote) noexcept { return operations().disconnect(remote); }
