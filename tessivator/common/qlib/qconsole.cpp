#include "common/qlib/qconsole.h"

#include <mutex>

#include "common/qlib/qsys.h"

namespace {

std::mutex console_lock;
std::size_t status_columns = 0;  // that the status line takes; guarded by the lock

void erase_status() {
  if (status_columns == 0) return;
  const std::u16string blanks(status_columns, u' ');
  status_columns = 0;
  (void)qsys_put(qsys_stream::error, u"\r" + blanks + u"\r");
}

}  // namespace

bool qconsole_put(std::u16string_view text) noexcept try {
  const std::lock_guard lock(console_lock);
  if (status_columns != 0 && qsys_is_terminal(qsys_stream::output)) erase_status();
  return qsys_put(qsys_stream::output, text);
} catch (...) {
  return false;
}

void qconsole_put_error(std::u16string_view text) noexcept try {
  const std::lock_guard lock(console_lock);
  erase_status();
  (void)qsys_put(qsys_stream::error, text);
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

void qconsole_show_status(std::u16string_view line) noexcept try {
  const std::lock_guard lock(console_lock);
  erase_status();
  for (const qchar unit : line) status_columns += qconsole_columns(unit);
  (void)qsys_put(qsys_stream::error, line);
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

// East Asian characters take two columns; what only might is counted so as well.
std::size_t qconsole_columns(qchar unit) noexcept { return unit >= 0x1100 ? 2 : 1; }

bool qconsole_error_is_terminal() noexcept { return qsys_is_terminal(qsys_stream::error); }

std::size_t qconsole_error_width() noexcept { return qsys_terminal_width(qsys_stream::error); }
