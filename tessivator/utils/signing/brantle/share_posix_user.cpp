// Connections through the share module; the file layer counts them, because it reads through the same ones.
#include "common/qlib/qshare_posix_user.h"
#include "utils/signing/brantle/share.h"

namespace {

static_assert(SMB_ACCESS_DENIED == SHARE_ERROR_ACCESS_DENIED && SMB_NOT_SUPPORTED == SHARE_ERROR_NOT_SUPPORTED &&
              SMB_BAD_NETPATH == SHARE_ERROR_BAD_NETPATH && SMB_BAD_NET_NAME == SHARE_ERROR_BAD_NET_NAME &&
              SMB_CREDENTIAL_CONFLICT == SHARE_ERROR_CREDENTIAL_CONFLICT &&
              SMB_LOGON_FAILURE == SHARE_ERROR_LOGON_FAILURE);

std::uint32_t connect(const share_use& use, std::uint32_t*) {
  return qshare_use_add(use.remote, {use.domain, use.user, use.password});
}

std::uint32_t disconnect(const std::u16string& remote) { return qshare_use_delete(remote); }

constexpr share_operations kModule = {connect, disconnect};

}  // namespace

const share_operations& share_platform_operations() noexcept { return kModule; }
