// Standard streams by handle.
#include <windows.h>

#include <algorithm>
#include <string>

#include "common/qlib/qerr.h"
#include "utils/report/report_streams.h"

namespace {

// The header is the same on both systems, so it keeps the handle as an integer.
HANDLE handleOf(std::intptr_t kept) noexcept {
  return reinterpret_cast<HANDLE>(kept);  // NOLINT(performance-no-int-to-ptr): it was a pointer
}

bool putAll(HANDLE stream, std::string_view bytes) noexcept {
  constexpr std::size_t largest_write = std::size_t{1} << 20U;
  while (!bytes.empty()) {
    DWORD done = 0;
    const auto part = static_cast<DWORD>(std::min(bytes.size(), largest_write));
    if (WriteFile(stream, bytes.data(), part, &done, nullptr) == 0 || done == 0) return false;
    bytes.remove_prefix(done);
  }
  return true;
}

}  // namespace

bool reportPutBytes(std::string_view bytes) noexcept { return putAll(GetStdHandle(STD_OUTPUT_HANDLE), bytes); }

ReportDevice::~ReportDevice() {
  if (isOpen()) CloseHandle(handleOf(handle_));
}

// The path as it was given: its full form would be that of a file called NUL.
qerr_t ReportDevice::open(const std::u16string& path) {
  const auto* const name = reinterpret_cast<const wchar_t*>(path.c_str());
  const HANDLE handle =
      CreateFileW(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return QERR_OK;
  if (GetFileType(handle) == FILE_TYPE_DISK) {
    CloseHandle(handle);
  } else {
    handle_ = reinterpret_cast<std::intptr_t>(handle);
  }
  return QERR_OK;
}

bool ReportDevice::write(std::string_view bytes) noexcept { return putAll(handleOf(handle_), bytes); }
