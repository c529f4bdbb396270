// Reading a password's file on POSIX systems.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/qlib/qlib.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys_posix_user.h"
#include "utils/signing/brantle/brantle_password.h"

namespace {

// A signal that ends the scan also ends waiting for a pipe.
ssize_t readSome(int file, char* bytes, std::size_t size) noexcept {
  ssize_t done = 0;
  do {
    done = ::read(file, bytes, size);
  } while (done < 0 && errno == EINTR && !qlib_is_cancelled());
  return done;
}

}  // namespace

std::ptrdiff_t brantle_password_fetch(const std::u16string& path, std::span<char> buffer) {
  std::string name;
  if (!qstr_name_to_bytes(path, name)) return -1;
  const qsys_descriptor file(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (file.get() < 0) return -1;
  std::size_t have = 0;
  ssize_t done = 1;
  while (done > 0 && have < buffer.size() && std::memchr(buffer.data(), '\n', have) == nullptr) {
    done = readSome(file.get(), buffer.data() + have, buffer.size() - have);
    if (done > 0) have += static_cast<std::size_t>(done);
  }
  return done < 0 ? -1 : static_cast<std::ptrdiff_t>(have);
}
