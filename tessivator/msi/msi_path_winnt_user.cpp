#include <windows.h>

#include <string_view>

#include "msi/msi_path_winnt.h"

std::u16string msi_system_path(const qchar* path) {
  std::u16string text(path);
  if (text.size() < MAX_PATH - 12 || text.starts_with(u"\\\\?\\")) return text;
  const auto* wide = reinterpret_cast<const wchar_t*>(path);
  std::u16string full(GetFullPathNameW(wide, 0, nullptr, nullptr), u'\0');
  const DWORD length =
      GetFullPathNameW(wide, static_cast<DWORD>(full.size()), reinterpret_cast<wchar_t*>(full.data()), nullptr);
  if (length == 0 || length >= full.size()) return text;
  full.resize(length);
  const bool share = full.starts_with(u"\\\\");
  return share ? u"\\\\?\\UNC" + full.substr(1) : u"\\\\?\\" + full;
}
