// The form of long paths (see "Naming Files, Paths, and Namespaces" of the Windows SDK).
#include <string_view>

#include "common/qlib/qsys_winnt_user.h"

namespace {

using namespace std::string_view_literals;

constexpr std::wstring_view extended = L"\\\\?\\"sv;
constexpr std::wstring_view extended_share = L"\\\\?\\UNC\\"sv;
// The plain form of a directory must have room for an 8.3 name.
constexpr std::size_t plain_units = MAX_PATH - 12;

bool is_device_path(std::wstring_view path) noexcept {
  return path.starts_with(extended) || path.starts_with(L"\\\\.\\"sv) || path.starts_with(L"\\??\\"sv);
}

bool is_drive_absolute(std::wstring_view path) noexcept {
  if (path.size() < 3 || path[1] != L':' || path[2] != L'\\') return false;
  return (path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z');
}

// A path without ".", ".." and empty components (a trailing separator is allowed) and without slashes.
bool is_plain(std::wstring_view rest) noexcept {
  if (rest.find(L'/') != std::wstring_view::npos) return false;
  while (!rest.empty()) {
    const std::size_t end = rest.find(L'\\');
    const std::wstring_view part = rest.substr(0, end);
    if (part.empty() || part == L"."sv || part == L".."sv) return false;
    rest = end == std::wstring_view::npos ? std::wstring_view() : rest.substr(end + 1);
  }
  return true;
}

std::wstring prefixed(std::wstring_view absolute) {
  if (is_device_path(absolute)) return std::wstring(absolute);
  const bool share = absolute.starts_with(L"\\\\"sv);
  if (share) absolute.remove_prefix(2);
  return std::wstring(share ? extended_share : extended).append(absolute);
}

}  // namespace

bool qsys_full_path(const qchar* path, std::wstring& out) {
  DWORD needed = GetFullPathNameW(qsys_wide(path), 0, nullptr, nullptr);
  while (needed != 0) {  // again when another thread changed the current directory in between
    std::wstring full(needed, L'\0');
    const DWORD length = GetFullPathNameW(qsys_wide(path), needed, full.data(), nullptr);
    if (length < needed) {
      full.resize(length);
      out = std::move(full);
      return length != 0;
    }
    needed = length + 1;
  }
  return false;
}

std::wstring qsys_extended_path(const qchar* path) {
  const std::wstring_view text(qsys_wide(path));
  const bool share = text.starts_with(L"\\\\"sv);
  if (is_device_path(text)) return std::wstring(text);
  if (share ? is_plain(text.substr(2)) : is_drive_absolute(text) && is_plain(text.substr(3))) return prefixed(text);
  std::wstring full;
  return qsys_full_path(path, full) ? prefixed(full) : std::wstring(text);
}

std::wstring qsys_system_path(const qchar* path) {
  const std::wstring_view text(qsys_wide(path));
  return text.size() < plain_units ? std::wstring(text) : qsys_extended_path(path);
}

std::u16string qsys_shown_path(std::wstring_view path) {
  if (path.starts_with(extended_share)) return u"\\\\" + std::u16string(qsys_units(path.substr(extended_share.size())));
  if (path.starts_with(extended)) path.remove_prefix(extended.size());
  return std::u16string(qsys_units(path));
}
