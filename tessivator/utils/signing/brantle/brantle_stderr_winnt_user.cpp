// Standard error on Windows.
#include "common/qlib/qsys_winnt_user.h"
// Before the others: it brings windows.h in.
#include <string>

#include "common/qlib/qstr.h"
#include "utils/signing/brantle/brantle_stderr.h"

namespace {

HANDLE stream() noexcept { return GetStdHandle(STD_ERROR_HANDLE); }

}  // namespace

bool brantle_stderr_is_terminal() noexcept {
  DWORD mode = 0;
  return GetConsoleMode(stream(), &mode) != FALSE;
}

std::size_t brantle_stderr_width() noexcept {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(stream(), &info) == FALSE || info.dwSize.X <= 0) return 80;
  return static_cast<std::size_t>(info.dwSize.X);
}

void brantle_stderr_write(std::u16string_view text) noexcept try {
  DWORD done = 0;
  if (brantle_stderr_is_terminal()) {
    (void)WriteConsoleW(stream(), text.data(), static_cast<DWORD>(text.size()), &done, nullptr);
    return;
  }
  const std::string bytes = qstr_to_utf8(text);
  (void)WriteFile(stream(), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr);
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}
