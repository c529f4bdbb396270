// A running share program: starts it, ends it, and exchanges frames with it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "common/qlib/qsys_posix_user.h"
#include "share/qshare_pair_posix_user.h"
#include "share/qshare_protocol.h"

// The share program is looked up relative to the library or program that contains this code, never by PATH, the
// environment or the current directory: they must not decide who gets a password.
class qshare_child {
 public:
  // Whether there is a share program. May throw std::bad_alloc.
  [[nodiscard]] static bool has_program();
  // Null when there is no share program, or it cannot be started. May throw std::bad_alloc.
  [[nodiscard]] static std::unique_ptr<qshare_child> start();
  qshare_child(const qshare_child&) = delete;
  qshare_child& operator=(const qshare_child&) = delete;
  // Ends the program, whatever it is waiting for.
  ~qshare_child();

  // Sends a whole frame.
  [[nodiscard]] qshare_transfer send(std::string_view frame, qshare_deadline until) const noexcept;
  // The head of the next frame; `ended` also when it does not answer `kind` or announces more than `most` bytes.
  [[nodiscard]] qshare_transfer head(qshare_kind kind, std::uint32_t most, qshare_head& head,
                                     qshare_deadline until) const noexcept;
  // The next `size` bytes of its payload.
  [[nodiscard]] qshare_transfer take(void* buffer, std::size_t size, qshare_deadline until) const noexcept;

 private:
  qshare_child() noexcept = default;

  qsys_descriptor pair_;
  pid_t process_ = -1;
  qsys_descriptor handle_;  // of the process; invalid on a kernel that has none
};
