// Shared by the Windows parts of all components: text for system calls, owned handles, and the form of long paths.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

#include "common/qlib/qtypes.h"

// UTF-16 has the form of wchar_t here: the same units as the system type, and back.
[[nodiscard]] inline const wchar_t* qsys_wide(const qchar* text) noexcept {
  return reinterpret_cast<const wchar_t*>(text);
}
[[nodiscard]] inline wchar_t* qsys_wide(qchar* text) noexcept { return reinterpret_cast<wchar_t*>(text); }
[[nodiscard]] inline std::u16string_view qsys_units(std::wstring_view text) noexcept {
  return {reinterpret_cast<const qchar*>(text.data()), text.size()};
}

// Owns a HANDLE and closes it with CloseHandle; null and INVALID_HANDLE_VALUE both mean none.
class qsys_handle {
 public:
  qsys_handle() noexcept = default;
  explicit qsys_handle(HANDLE handle) noexcept : handle_(handle) {}
  qsys_handle(qsys_handle&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  qsys_handle& operator=(qsys_handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~qsys_handle() {
    if (valid()) CloseHandle(handle_);
  }
  [[nodiscard]] HANDLE get() const noexcept { return handle_; }
  [[nodiscard]] bool valid() const noexcept { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// The functions below may throw std::bad_alloc.

// The absolute form of `path`, which need not exist. False with the reason in GetLastError.
[[nodiscard]] bool qsys_full_path(const qchar* path, std::wstring& out);

// `path` with "\\?\" or "\\?\UNC\" in front: no limit of 260 units, and every name is taken literally, also "nul",
// "com1.exe" and names that end in a blank or period, which a hostile archive can contain. Only a path that is not
// absolute and plain goes through qsys_full_path first; a device path ("\\.\", "\\?\") is not changed.
[[nodiscard]] std::wstring qsys_extended_path(const qchar* path);

// For services that show the path they were given or read packages by it: `path` as it is while the system's plain form
// holds it, else its extended form.
[[nodiscard]] std::wstring qsys_system_path(const qchar* path);

// Removes the prefix of the extended form from a path that a service returned.
[[nodiscard]] std::u16string qsys_shown_path(std::wstring_view path);
