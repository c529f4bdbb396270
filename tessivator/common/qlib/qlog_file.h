// The log file and its rotation, used by qlog.cpp.
#pragma once

#include <array>
#include <string_view>

#include "common/qlib/qtypes.h"

// Capacity, in units, of the path of a log file and the name of a backup.
inline constexpr std::size_t QLOG_PATH_UNITS = 512;

// Whether a log file is set; takes no lock.
[[nodiscard]] bool qlog_file_is_set() noexcept;

// Appends a line to the log file, which is opened and closed each time; an empty file first gets its byte-order mark.
// QERR_OK when no file is set.
[[nodiscard]] qerr_t qlog_file_emit(std::u16string_view line) noexcept;

// Creates the file if needed and writes the byte-order mark when it is empty.
[[nodiscard]] qerr_t qlog_file_start(const qchar* path) noexcept;

// The path of the log file as stored.
[[nodiscard]] std::array<qchar, QLOG_PATH_UNITS> qlog_file_path() noexcept;

// qlog_rotate_file for a caller that holds the guard.
[[nodiscard]] qerr_t qlog_rotate_held(const qchar* path, std::uint32_t size_kib, std::uint32_t count) noexcept;

// Held while a line is appended and while a file is rotated: otherwise a line could get in front of the byte-order mark
// of the new file.
class qlog_file_guard {
 public:
  qlog_file_guard() noexcept;
  qlog_file_guard(const qlog_file_guard&) = delete;
  qlog_file_guard& operator=(const qlog_file_guard&) = delete;
  ~qlog_file_guard();
};

// Starts rotation of the main log file, replacing a running one. Returns the code of what could not be created.
[[nodiscard]] qerr_t qlog_rotate_start_main(const qchar* path) noexcept;
// Stops both rotation threads and waits for them. Do not call it from the unload hook of a library, where threads
// cannot end.
void qlog_rotate_stop() noexcept;
