// Reading a password's file on Windows.
#include "common/qlib/qsys_winnt_user.h"
// Before the others: it brings windows.h in.
#include <cstring>

#include "utils/signing/brantle/brantle_password.h"

std::ptrdiff_t brantle_password_fetch(const std::u16string& path, std::span<char> buffer) {
  const HANDLE file =
      CreateFileW(qsys_wide(path.c_str()), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return -1;
  std::size_t have = 0;
  DWORD done = 1;
  bool good = true;
  while (good && done > 0 && have < buffer.size() && std::memchr(buffer.data(), '\n', have) == nullptr) {
    good = ReadFile(file, buffer.data() + have, static_cast<DWORD>(buffer.size() - have), &done, nullptr) != FALSE;
    if (!good && GetLastError() == ERROR_BROKEN_PIPE) {  // how a pipe ends
      good = true;
      done = 0;
    }
    if (good) have += done;
  }
  CloseHandle(file);
  return good ? static_cast<std::ptrdiff_t>(have) : -1;
}
