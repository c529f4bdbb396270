// Operating-system services of the runtime, except files: identities, time, events, threads, message texts, the
// console. Internal; each function exists for Windows and for POSIX.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

[[nodiscard]] std::uint32_t qsys_process_id() noexcept;
[[nodiscard]] std::uint32_t qsys_thread_id() noexcept;

// The environment variable `name` (ASCII); empty when not set. May throw std::bad_alloc.
[[nodiscard]] std::u16string qsys_environment(const char* name);

// Milliseconds since 1970, UTC.
[[nodiscard]] std::uint64_t qsys_time_ms() noexcept;

struct qsys_local_time {
  std::uint32_t year = 1970;
  std::uint32_t month = 0;  // 0-11
  std::uint32_t day = 1;
  std::uint32_t hour = 0;
  std::uint32_t minute = 0;
  std::uint32_t second = 0;
};

// Local time of a value of qsys_time_ms.
[[nodiscard]] qsys_local_time qsys_to_local_time(std::uint64_t time_ms) noexcept;

// The last system error of the calling thread, raw and translated.
[[nodiscard]] std::uint32_t qsys_last_error() noexcept;
[[nodiscard]] qerr_t qsys_last_code() noexcept;

// The English system text of an error value, without line end; empty when there is none. May throw std::bad_alloc.
[[nodiscard]] std::u16string qsys_message_text(std::uint32_t value);

enum class qsys_stream : std::uint8_t { output, error };

// Writes the text to a standard stream; one call at a time (qconsole.h holds the lock). A console gets wide text.
// Otherwise it is UTF-8, and standard output on Windows the console output code page with CR LF for each LF. False when
// it could not be written in full: a closed pipe never raises a signal, and a stream that does not block and that
// nobody reads is waited for 5 s once, then no more until it takes something.
[[nodiscard]] bool qsys_put(qsys_stream stream, std::u16string_view text) noexcept;
[[nodiscard]] bool qsys_is_terminal(qsys_stream stream) noexcept;
// The terminal's columns, 80 where they are not known.
[[nodiscard]] std::size_t qsys_terminal_width(qsys_stream stream) noexcept;

// An event; once set it stays set.
class qsys_event {
 public:
  virtual ~qsys_event() = default;
  virtual void set() noexcept = 0;
  // QERR_OK when set, QERR_TIMER_EXPIRED after `timeout_ms`, else the code of a system error.
  [[nodiscard]] virtual qerr_t wait(std::uint32_t timeout_ms) noexcept = 0;
};
[[nodiscard]] qerr_t qsys_event_create(std::unique_ptr<qsys_event>& event) noexcept;

// A running thread; the destructor joins it.
class qsys_thread {
 public:
  virtual ~qsys_thread() = default;
};
[[nodiscard]] qerr_t qsys_thread_start(std::unique_ptr<qsys_thread>& thread, void (*body)(void*) noexcept,
                                       void* argument) noexcept;
