// System services of the path helpers, from the file and registry interfaces.
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qsys_winnt_user.h"
#include "utl/utl_system.h"

namespace {

// Removes the prefix that only our call had.
std::u16string shown(const qchar* path, const std::wstring& asked, const std::wstring& answer) {
  return asked == qsys_wide(path) ? std::u16string(qsys_units(answer)) : qsys_shown_path(answer);
}

bool get_long_form(const std::wstring& name, std::wstring& form) {
  DWORD needed = GetLongPathNameW(name.c_str(), nullptr, 0);
  while (needed != 0) {
    form.assign(needed, L'\0');
    const DWORD length = GetLongPathNameW(name.c_str(), form.data(), needed);
    if (length < needed) {
      form.resize(length);
      return length != 0;
    }
    needed = length + 1;  // the path became longer in between
  }
  return false;
}

class winnt_system final : public utl_system {
 public:
  std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) override {
    const std::wstring asked = qsys_system_path(path);
    std::wstring found;
    if (!get_long_form(asked, found)) return GetLastError();
    const std::u16string form = shown(path, asked, found);
    const auto needed = static_cast<std::uint32_t>(form.size() + 1);
    const std::uint32_t room = units;
    units = needed;
    if (buffer == nullptr) return 0;
    if (room < needed) return ERROR_INSUFFICIENT_BUFFER;
    form.copy(buffer, form.size());
    buffer[form.size()] = 0;
    return 0;
  }

  qerr_t translate(std::uint32_t error) noexcept override { return qerr_from_win32(error); }

  qerr_t volume_path(const qchar* path, std::u16string& out) override {
    const std::wstring asked = qsys_system_path(path);
    std::wstring root(asked.size() + 2, L'\0');
    if (GetVolumePathNameW(asked.c_str(), root.data(), static_cast<DWORD>(root.size())) == FALSE) {
      return qerr_from_win32(GetLastError());
    }
    root.resize(wcslen(root.c_str()));
    out = shown(path, asked, root);
    return QERR_OK;
  }

  qerr_t registry_text(const qchar* key, const qchar* value, qchar* buffer, std::uint32_t& bytes) noexcept override {
    constexpr DWORD kinds = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    DWORD size = bytes;
    const LSTATUS error =
        RegGetValueW(HKEY_LOCAL_MACHINE, qsys_wide(key), qsys_wide(value), kinds, nullptr, buffer, &size);
    if (error != ERROR_SUCCESS) return qerr_from_win32(static_cast<std::uint32_t>(error));
    bytes = size;
    return QERR_OK;
  }
};

}  // namespace

utl_system& utl_platform_system() noexcept {
  static winnt_system system;
  return system;
}
