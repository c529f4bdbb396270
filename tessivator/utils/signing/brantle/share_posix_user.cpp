// Connections without a share module: every one fails, as it would when no network redirector is installed.
#include "common/qlib/qstr.h"
#include "utils/signing/brantle/share.h"

namespace {

std::uint32_t connect(const share_use& use, std::uint32_t*) {
  return qpath_is_unc(use.remote.c_str()) ? SHARE_ERROR_NOT_SUPPORTED : SHARE_ERROR_BAD_NET_NAME;
}
std::uint32_t disconnect(const std::u16string&) { return SHARE_ERROR_NOT_SUPPORTED; }

constexpr share_operations kNone = {connect, disconnect};

}  // namespace

const share_operations& share_platform_operations() noexcept { return kNone; }
