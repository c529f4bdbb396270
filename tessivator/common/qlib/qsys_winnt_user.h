// What the Windows parts of all components share: text for the system's calls, owned handles, and the form in which
// the system takes long paths.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

#include "common/qlib/qtypes.h"

// UTF-16 is wchar_t's form here: the same units under the system's type, and back.
[[nodiscard]] inline const wchar_t* qsys_wide(const qchar* text) noexcept {
  return reinterpret_cast<const wchar_t*>(text);
}
[[nodiscard]] inline wchar_t* qsys_wide(qchar* text) noexcept { return reinterpret_cast<wchar_t*>(text); }
[[nodiscard]] inline std::u16string_view qsys_units(std::wstring_view text) noexcept {
  return {reinterpret_cast<const qchar*>(text.data()), text.size()};
}

// Owner of a HANDLE that CloseHandle closes; null and INVALID_HANDLE_VALUE both mean that there is none.
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

// `path` behind "\\?\" or "\\?\UNC\": a form that has no length limit of 260 units and takes every name as it stands,
// also "nul", "com1.exe" and names that end in a blank or full stop, which a hostile archive can hold. Only a path that
// is not absolute and plain goes through qsys_full_path first; a device path ("\\.\", "\\?\") stays as it is.
[[nodiscard]] std::wstring qsys_extended_path(const qchar* path);

// For services that show the path they were given or read packages by it: `path` as it is while the system's plain form
// holds it, else its extended form.
[[nodiscard]] std::wstring qsys_system_path(const qchar* path);

// A path that a service answered, without the prefix that the extended form has.
[[nodiscard]] std::u16string qsys_shown_path(std::wstring_view path);
