// Connections through the share program. The file layer counts them, because it reads through the same ones.
#include "share/qshare_connections_posix_user.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

static_assert(QSHARE_ACCESS_DENIED == BRANTLE_SHARE_ACCESS_DENIED &&
              QSHARE_NOT_SUPPORTED == BRANTLE_SHARE_NOT_SUPPORTED && QSHARE_BAD_NETPATH == BRANTLE_SHARE_BAD_NETPATH &&
              QSHARE_BAD_NET_NAME == BRANTLE_SHARE_BAD_NET_NAME &&
              QSHARE_CREDENTIAL_CONFLICT == BRANTLE_SHARE_CREDENTIAL_CONFLICT &&
              QSHARE_LOGON_FAILURE == BRANTLE_SHARE_LOGON_FAILURE);

std::uint32_t connect(const brantle_share_use& use, std::uint32_t*) {
  return qshare_use_add(use.remote, {use.domain, use.user, use.password});
}

std::uint32_t disconnect(const std::u16string& remote) { return qshare_use_delete(remote); }

constexpr brantle_share_operations program_operations = {connect, disconnect};

}  // namespace

const brantle_share_operations& brantle_share_platform_operations() noexcept { return program_operations; }
