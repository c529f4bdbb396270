// The log file sink and its rotation, behind qlog.cpp.
#pragma once

#include <array>
#include <string_view>

#include "common/qlib/qtypes.h"

// Capacity of a log file's path and of a backup's name, in units.
inline constexpr std::size_t QLOG_PATH_UNITS = 512;

// Whether a log file is set; without locking.
[[nodiscard]] bool qlog_file_is_set() noexcept;

// Appends a line to the log file, which is opened and closed for it; an empty file gets its byte-order mark first.
// QERR_OK when no file is set.
[[nodiscard]] qerr_t qlog_file_emit(std::u16string_view line) noexcept;

// Appends the byte-order mark when the file, which is created if need be, is empty.
[[nodiscard]] qerr_t qlog_file_start(const qchar* path) noexcept;

// The log file's path as it is stored.
[[nodiscard]] std::array<qchar, QLOG_PATH_UNITS> qlog_file_path() noexcept;

// qlog_rotate_file for a caller who holds the guard.
[[nodiscard]] qerr_t qlog_rotate_held(const qchar* path, std::uint32_t size_kib, std::uint32_t count) noexcept;

// Held while a line is appended and while a file is rotated: a line that came between the rename and the new file's
// byte-order mark would stand in front of the mark.
class qlog_file_guard {
 public:
  qlog_file_guard() noexcept;
  qlog_file_guard(const qlog_file_guard&) = delete;
  qlog_file_guard& operator=(const qlog_file_guard&) = delete;
  ~qlog_file_guard();
};

// Rotation of the main log file; replaces one that runs. Returns the code of what could not be created.
[[nodiscard]] qerr_t qlog_rotate_start_main(const qchar* path) noexcept;
// Ends both rotation threads and waits for them. Not from a library's own unload hook, where threads cannot end.
void qlog_rotate_stop() noexcept;
