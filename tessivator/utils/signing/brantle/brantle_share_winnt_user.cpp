// Connections through the network management interface. It is loaded for each connect and delete: a plain scan does not
// need it. It comes from the system folder, whatever is beside the program.
#include "common/qlib/qsys_winnt_user.h"
// After windows.h.
#include <lm.h>

#include "utils/signing/brantle/brantle_share.h"

namespace {

wchar_t* wide(const std::u16string& text) noexcept {
  // The record of the interface has non-const pointers but only reads them.
  return const_cast<wchar_t*>(qsys_wide(text.c_str()));
}

// One function of the interface.
template <class Function>
class NetworkCall {
 public:
  explicit NetworkCall(const char* name) noexcept
      : module_(LoadLibraryExW(L"netapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
    if (module_ != nullptr) {
      function_ = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module_, name)));
    }
    if (function_ == nullptr) error_ = GetLastError();
  }
  NetworkCall(const NetworkCall&) = delete;
  NetworkCall& operator=(const NetworkCall&) = delete;
  ~NetworkCall() {
    if (module_ != nullptr) FreeLibrary(module_);
  }
  // The result of the function, or why it is missing.
  template <class... Args>
  std::uint32_t operator()(Args... args) const noexcept {
    return function_ != nullptr ? function_(args...) : error_;
  }

 private:
  HMODULE module_;
  Function* function_ = nullptr;
  std::uint32_t error_ = 0;
};

std::uint32_t connect(const brantle_share_use& use, std::uint32_t* bad_argument) {
  USE_INFO_2 info{};
  info.ui2_remote = wide(use.remote);
  info.ui2_password = wide(use.password);
  info.ui2_asg_type = USE_WILDCARD;
  info.ui2_username = wide(use.user);
  info.ui2_domainname = wide(use.domain);
  DWORD index = 0;
  const NetworkCall<decltype(NetUseAdd)> add("NetUseAdd");
  const std::uint32_t status = add(nullptr, 2, reinterpret_cast<LPBYTE>(&info), &index);
  *bad_argument = index;
  return status;
}

std::uint32_t disconnect(const std::u16string& remote) {
  const NetworkCall<decltype(NetUseDel)> remove("NetUseDel");
  return remove(nullptr, wide(remote), USE_NOFORCE);
}

constexpr brantle_share_operations network_management = {connect, disconnect};

}  // namespace

const brantle_share_operations& brantle_share_platform_operations() noexcept { return network_management; }
