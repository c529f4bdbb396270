// Connections through the network management interface.
#include "common/qlib/qsys_winnt_user.h"
// After windows.h.
#include <lm.h>

#include "utils/signing/brantle/brantle_share.h"

namespace {

wchar_t* wide(const std::u16string& text) noexcept {
  // The interface's record holds non-const pointers but only reads them.
  return const_cast<wchar_t*>(qsys_wide(text.c_str()));
}

std::uint32_t connect(const brantle_share_use& use, std::uint32_t* bad_argument) {
  USE_INFO_2 info{};
  info.ui2_remote = wide(use.remote);
  info.ui2_password = wide(use.password);
  info.ui2_asg_type = USE_WILDCARD;
  info.ui2_username = wide(use.user);
  info.ui2_domainname = wide(use.domain);
  DWORD index = 0;
  const NET_API_STATUS status = NetUseAdd(nullptr, 2, reinterpret_cast<LPBYTE>(&info), &index);
  *bad_argument = index;
  return status;
}

std::uint32_t disconnect(const std::u16string& remote) { return NetUseDel(nullptr, wide(remote), USE_NOFORCE); }

constexpr brantle_share_operations network_management = {connect, disconnect};

}  // namespace

const brantle_share_operations& brantle_share_platform_operations() noexcept { return network_management; }
