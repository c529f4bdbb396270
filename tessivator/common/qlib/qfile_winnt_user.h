// What the Windows parts of the file layer share.
#pragma once

#include <windows.h>

#include <string>
#include <utility>

#include "common/qlib/qfile_provider.h"

// `error` is a GetLastError value.
[[nodiscard]] qsys_status qfile_status_of(DWORD error) noexcept;

// `path` in the form \\?\ or \\?\UNC\, which has no length limit of 260 units and takes every name as it stands: also
// "nul", "com1.exe" and names that end in a blank or full stop, which a hostile archive can hold. Only a path that is
// not absolute and plain goes through GetFullPathNameW first; a device path (\\.\, \\?\) stays as it is.
[[nodiscard]] std::wstring qfile_native_path(const qchar* path);

[[nodiscard]] inline const wchar_t* qfile_wide(const qchar* text) noexcept {
  return reinterpret_cast<const wchar_t*>(text);
}

class qfile_win_handle {
 public:
  qfile_win_handle() noexcept = default;
  explicit qfile_win_handle(HANDLE handle) noexcept : handle_(handle) {}
  qfile_win_handle(qfile_win_handle&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  qfile_win_handle& operator=(qfile_win_handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~qfile_win_handle() {
    if (valid()) CloseHandle(handle_);
  }
  [[nodiscard]] HANDLE get() const noexcept { return handle_; }
  [[nodiscard]] bool valid() const noexcept { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// The parts of the local provider, one file each.
qsys_status qfile_winnt_open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out);
qsys_status qfile_winnt_create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out);
qsys_status qfile_winnt_search(const qchar* pattern, std::unique_ptr<qfile_search>& out);
qsys_status qfile_winnt_list(const qchar* directory, std::unique_ptr<qfile_search>& out);
// Of the directory at a native path; a link is followed.
qsys_status qfile_winnt_identity(const std::wstring& directory, qfile_identity& out) noexcept;
qsys_status qfile_winnt_info(HANDLE file, qfile_info& out) noexcept;
