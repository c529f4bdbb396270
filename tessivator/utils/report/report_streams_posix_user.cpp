// Standard streams by file descriptor.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys.h"
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

bool leadsTo(int descriptor, const struct stat& about) noexcept {
  struct stat own {};
  return fstat(descriptor, &own) == 0 && own.st_dev == about.st_dev && own.st_ino == about.st_ino;
}

}  // namespace

bool reportPutBytes(std::string_view bytes) noexcept { return putAll(STDOUT_FILENO, bytes); }

ReportDevice::~ReportDevice() {
  if (isOpen()) (void)close(static_cast<int>(handle_));
}

qerr_t ReportDevice::open(const std::u16string& path) {
  std::string name;
  struct stat about {};
  if (!qstr_name_to_bytes(path, name) || stat(name.c_str(), &about) != 0) return QERR_OK;
  int descriptor = -1;
  if (leadsTo(STDOUT_FILENO, about) || leadsTo(STDERR_FILENO, about)) {
    descriptor = fcntl(leadsTo(STDOUT_FILENO, about) ? STDOUT_FILENO : STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  } else if (S_ISREG(about.st_mode) || S_ISDIR(about.st_mode)) {
    return QERR_OK;
  } else {
    do {
      descriptor = ::open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    } while (descriptor < 0 && errno == EINTR);
  }
  if (descriptor < 0) return qsys_last_code();
  handle_ = descriptor;
  return QERR_OK;
}

bool ReportDevice::write(std::string_view bytes) noexcept { return putAll(static_cast<int>(handle_), bytes); }
