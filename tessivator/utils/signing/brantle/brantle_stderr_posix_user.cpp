// Standard error on POSIX systems.
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "common/qlib/qstr.h"
#include "common/qlib/qsys_posix_user.h"
#include "utils/signing/brantle/brantle_stderr.h"

bool brantle_stderr_is_terminal() noexcept { return ::isatty(STDERR_FILENO) == 1; }

std::size_t brantle_stderr_width() noexcept {
  struct winsize size {};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

void brantle_stderr_write(std::u16string_view text) noexcept try {
  const std::string bytes = qstr_to_utf8(text);
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t done = qsys_retry([&] { return ::write(STDERR_FILENO, rest.data(), rest.size()); });
    if (done <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(done));
  }
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}
