// Standard streams by file descriptor.
#include <unistd.h>

#include <cerrno>
#include <string>

#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "utils/report/report_streams.h"

namespace {

bool putAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t done = write(descriptor, bytes.data(), bytes.size());
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(done));
  }
  return true;
}

}  // namespace

bool reportPutBytes(std::string_view bytes) noexcept { return putAll(STDOUT_FILENO, bytes); }

void reportPutError(std::u16string_view text) noexcept try {
  std::string bytes;
  if (!qstr_name_to_bytes(text, bytes)) bytes = qstr_to_utf8(text);
  (void)putAll(STDERR_FILENO, bytes);
} catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory even for saying so
}
