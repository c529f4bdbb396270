// What this process writes to its terminal. The library itself writes to standard output only; standard error and the
// status line belong to the programs. Safe from any thread; texts of different threads do not mix.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// Text to standard output, encoded as qsys_put describes. False when it could not be written in full.
bool qconsole_put(std::u16string_view text) noexcept;

// Text to standard error; what cannot be written is lost.
void qconsole_put_error(std::u16string_view text) noexcept;

// Shows `line`, which has no line feed, as the last line of standard error, instead of the status before it. The next
// text on standard error, or on a terminal that is standard output as well, erases it first.
void qconsole_show_status(std::u16string_view line) noexcept;

// Columns that a terminal shows `unit` in, rather too many than too few: a status line that wraps cannot be erased.
[[nodiscard]] std::size_t qconsole_columns(qchar unit) noexcept;

[[nodiscard]] bool qconsole_error_is_terminal() noexcept;
// The columns of standard error's terminal, 80 where they are not known.
[[nodiscard]] std::size_t qconsole_error_width() noexcept;
