// The path helpers' system services from the file and registry interfaces.
#include <windows.h>

#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qstr.h"
#include "utl/utl_system.h"

namespace {

const wchar_t* wide(const qchar* text) noexcept { return reinterpret_cast<const wchar_t*>(text); }

// The form in which the system takes more than 260 units, and how much of a result's start belongs to it.
struct long_path {
  std::wstring name;
  std::size_t prefix = 0;
  bool share = false;

  explicit long_path(const qchar* path) : name(wide(path)) {
    if (name.size() < MAX_PATH || name.starts_with(L"\\\\?\\") || name.starts_with(L"\\\\.\\")) return;
    share = name.starts_with(L"\\\\");
    const std::wstring start = share ? L"\\\\?\\UNC" : L"\\\\?\\";
    // "\\server" becomes "\\?\UNC\server": one of its two backslashes stays.
    prefix = start.size();
    name = start + (share ? name.substr(1) : name);
  }
  // A result without the prefix, as names are shown.
  [[nodiscard]] std::wstring shown(const std::wstring& form) const {
    return share ? L"\\" + form.substr(prefix) : form.substr(prefix);
  }
};

bool get_long_form(const std::wstring& name, std::wstring& form) {
  DWORD needed = GetLongPathNameW(name.c_str(), nullptr, 0);
  while (needed != 0) {
    form.assign(needed, L'\0');
    const DWORD length = GetLongPathNameW(name.c_str(), form.data(), needed);
    if (length < needed) {
      form.resize(length);
      return length != 0;
    }
    needed = length + 1;  // the path grew in between
  }
  return false;
}

class winnt_system final : public utl_system {
 public:
  std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) override {
    const long_path asked(path);
    std::wstring form;
    if (!get_long_form(asked.name, form)) return GetLastError();
    form = asked.shown(form);
    const auto needed = static_cast<std::uint32_t>(form.size() + 1);
    const std::uint32_t room = units;
    units = needed;
    if (buffer == nullptr) return 0;
    if (room < needed) return ERROR_INSUFFICIENT_BUFFER;
    form.copy(reinterpret_cast<wchar_t*>(buffer), form.size());
    buffer[form.size()] = 0;
    return 0;
  }

  qerr_t translate(std::uint32_t error) noexcept override { return qerr_from_win32(error); }

  qerr_t volume_path(const qchar* path, std::u16string& out) override {
    const long_path asked(path);
    std::wstring root(asked.name.size() + 2, L'\0');
    if (GetVolumePathNameW(asked.name.c_str(), root.data(), static_cast<DWORD>(root.size())) == FALSE) {
      return qerr_from_win32(GetLastError());
    }
    root.resize(wcslen(root.c_str()));
    if (asked.prefix > 0 && root.starts_with(L"\\\\?\\")) root = asked.shown(root);
    out.assign(reinterpret_cast<const qchar*>(root.c_str()), root.size());
    return QERR_OK;
  }

  qerr_t registry_text(const qchar* key, const qchar* value, qchar* buffer, std::uint32_t& bytes) noexcept override {
    constexpr DWORD kinds = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    DWORD size = bytes;
    const LSTATUS error = RegGetValueW(HKEY_LOCAL_MACHINE, wide(key), wide(value), kinds, nullptr, buffer, &size);
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
