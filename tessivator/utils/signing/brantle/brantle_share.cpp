#include "utils/signing/brantle/brantle_share.h"

#include "common/qlib/qreplaceable.h"

namespace {

qreplaceable<const brantle_share_operations> replaceable_operations;

const brantle_share_operations& operations() noexcept {
  return replaceable_operations.get(brantle_share_platform_operations());
}

}  // namespace

void brantle_share_set_operations(const brantle_share_operations* own) noexcept { replaceable_operations.replace(own); }

std::uint32_t brantle_share_connect(const brantle_share_use& use, std::uint32_t* bad_argument) noexcept {
  *bad_argument = 0;
  return operations().connect(use, bad_argument);
}

std::uint32_t brantle_share_disconnect(const std::u16string& remote) noexcept {
  return operations().disconnect(remote);
}
