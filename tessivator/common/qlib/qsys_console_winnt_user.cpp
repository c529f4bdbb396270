// The standard streams of Windows.
#include <algorithm>
#include <new>
#include <string>

#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"
#include "common/qlib/qsys_winnt_user.h"

namespace {

constexpr std::size_t console_piece = 16384;  // units that WriteConsoleW takes at once

bool put_wide(HANDLE output, std::u16string_view text) noexcept {
  while (!text.empty()) {
    const auto piece = static_cast<DWORD>(std::min(text.size(), console_piece));
    DWORD done = 0;
    if (WriteConsoleW(output, qsys_wide(text.data()), piece, &done, nullptr) == 0 || done == 0) return false;
    text.remove_prefix(std::min<std::size_t>(done, piece));
  }
  return true;
}

bool put_bytes(HANDLE output, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const auto piece = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1U << 20));
    DWORD done = 0;
    if (WriteFile(output, bytes.data(), piece, &done, nullptr) == 0 || done == 0) return false;
    bytes.remove_prefix(std::min<std::size_t>(done, piece));
  }
  return true;
}

// One line, without its line feed, in the output code page of the console; without a console in that of the system.
bool convert_line(UINT code_page, std::u16string_view line, std::string& bytes) {
  bytes.clear();
  if (line.empty()) return true;
  if (line.size() > 0x20000000) return false;
  const auto units = static_cast<int>(line.size());
  const int needed = WideCharToMultiByte(code_page, 0, qsys_wide(line.data()), units, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return false;
  bytes.resize(static_cast<std::size_t>(needed));
  return WideCharToMultiByte(code_page, 0, qsys_wide(line.data()), units, bytes.data(), needed, nullptr, nullptr) ==
         needed;
}

bool put_converted(HANDLE output, std::u16string_view text) {
  const UINT code_page = GetConsoleOutputCP();
  std::string bytes;
  while (!text.empty()) {
    const std::size_t end = text.find(u'\n');
    const bool has_line_feed = end != std::u16string_view::npos;
    if (!convert_line(code_page, text.substr(0, end), bytes)) return false;
    if (has_line_feed) bytes += "\r\n";
    if (!put_bytes(output, bytes)) return false;
    text.remove_prefix(has_line_feed ? end + 1 : text.size());
  }
  return true;
}

HANDLE handle_of(qsys_stream stream) noexcept {
  return GetStdHandle(stream == qsys_stream::output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

}  // namespace

bool qsys_put(qsys_stream stream, std::u16string_view text) noexcept try {
  const HANDLE handle = handle_of(stream);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return false;
  if (qsys_is_terminal(stream)) return put_wide(handle, text);
  return stream == qsys_stream::output ? put_converted(handle, text) : put_bytes(handle, qstr_to_utf8(text));
} catch (const std::bad_alloc&) {
  return false;
}

// The null device is a character device but no console: it gets bytes like a file.
bool qsys_is_terminal(qsys_stream stream) noexcept {
  const HANDLE handle = handle_of(stream);
  DWORD mode = 0;
  return GetFileType(handle) == FILE_TYPE_CHAR && GetConsoleMode(handle, &mode) != 0;
}

std::size_t qsys_terminal_width(qsys_stream stream) noexcept {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(handle_of(stream), &info) == FALSE || info.dwSize.X <= 0) return 80;
  return static_cast<std::size_t>(info.dwSize.X);
}
