// Standard streams by handle: a console gets wide text, anything else UTF-8.
#include <windows.h>

#include <algorithm>
#include <string>

#include "common/qlib/qstr.h"
#include "utils/report/report_streams.h"

namespace {

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

void reportPutError(std::u16string_view text) noexcept try {
  const HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(stream, &mode) != 0) {
    (void)WriteConsoleW(stream, text.data(), static_cast<DWORD>(text.size()), nullptr, nullptr);
  } else {
    (void)putAll(stream, qstr_to_utf8(text));
  }
} catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory even for saying so
}
