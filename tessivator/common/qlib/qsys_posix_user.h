// Shared by the POSIX parts of all components: codes of errno values, calls that signals interrupt, owned descriptors.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "common/qlib/qerr.h"

// System numbers up to 124 are our codes.
[[nodiscard]] constexpr qerr_t qsys_code_of(int error) noexcept {
  constexpr std::uint32_t highest_portable = 124;
  const auto value = static_cast<std::uint32_t>(error);
  return value <= highest_portable ? value : value + QERR_SYSTEM_BASE;
}

// Repeats a call while a signal interrupts it.
template <class Call>
auto qsys_retry(Call call) noexcept {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

// Owner of a file descriptor.
class qsys_descriptor {
 public:
  qsys_descriptor() noexcept = default;
  explicit qsys_descriptor(int fd) noexcept : fd_(fd) {}
  qsys_descriptor(qsys_descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  qsys_descriptor& operator=(qsys_descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~qsys_descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};
