// Connections through the share module; the file layer counts them, because it reads through the same ones.
#include "common/qlib/qshare_posix_user.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

static_assert(SMB_ACCESS_DENIED == BRANTLE_SHARE_ACCESS_DENIED && SMB_NOT_SUPPORTED == BRANTLE_SHARE_NOT_SUPPORTED &&
              SMB_BAD_NETPATH == BRANTLE_SHARE_BAD_NETPATH && SMB_BAD_NET_NAME == BRANTLE_SHARE_BAD_NET_NAME &&
              SMB_CREDENTIAL_CONFLICT == BRANTLE_SHARE_CREDENTIAL_CONFLICT &&
              SMB_LOGON_FAILURE == BRANTLE_SHARE_LOGON_FAILURE);

std::uint32_t connect(const brantle_share_use& use, std::uint32_t*) {
  return qshare_use_add(use.remote, {use.domain, use.user, use.password});
}

std::uint32_t disconnect(const std::u16string& remote) { return qshare_use_delete(remote); }

constexpr brantle_share_operations module_operations = {connect, disconnect};

}  // namespace

const brantle_share_operations& brantle_share_platform_operations() noexcept { return module_operations; }
