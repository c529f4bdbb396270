// The standard streams of POSIX systems.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <new>
#include <string>

#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"
#include "common/qlib/qsys_posix_user.h"

namespace {

// Blocks SIGPIPE for the calling thread: when the reader is gone the write fails, and the host lives on.
class sigpipe_guard {
 public:
  sigpipe_guard() noexcept {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  sigpipe_guard(const sigpipe_guard&) = delete;
  sigpipe_guard& operator=(const sigpipe_guard&) = delete;
  ~sigpipe_guard() {
    if (!was_pending_) {
      const timespec at_once{};
      while (sigtimedwait(&pipe_, nullptr, &at_once) == -1 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool was_pending_ = false;
};

// A host may have made the stream non-blocking, and its reader may be slow.
constexpr std::uint64_t most_wait_ms = 5000;

std::uint64_t monotonic_ms() noexcept {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

// False when the stream takes nothing before that time.
bool wait_for_reader(int descriptor, std::uint64_t until) noexcept {
  const std::uint64_t now = monotonic_ms();
  if (now >= until) return false;
  pollfd output{descriptor, POLLOUT, 0};
  return qsys_retry([&] { return poll(&output, 1, static_cast<int>(until - now)); }) > 0;
}

// By stream: nobody took anything for as long as that.
std::array<bool, 2> given_up{};

int descriptor_of(qsys_stream stream) noexcept { return stream == qsys_stream::output ? STDOUT_FILENO : STDERR_FILENO; }

}  // namespace

bool qsys_put(qsys_stream stream, std::u16string_view text) noexcept try {
  const std::string bytes = qstr_to_utf8(text);
  const int descriptor = descriptor_of(stream);
  bool& gone = given_up[static_cast<std::size_t>(stream)];
  const sigpipe_guard guard;
  const std::uint64_t until = gone ? 0 : monotonic_ms() + most_wait_ms;
  std::string_view rest(bytes);
  while (!rest.empty()) {
    const ssize_t done = qsys_retry([&] { return write(descriptor, rest.data(), rest.size()); });
    if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      gone = !wait_for_reader(descriptor, until);
      if (!gone) continue;
    }
    if (done <= 0) return false;
    gone = false;
    rest.remove_prefix(static_cast<std::size_t>(done));
  }
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool qsys_is_terminal(qsys_stream stream) noexcept { return isatty(descriptor_of(stream)) == 1; }

std::size_t qsys_terminal_width(qsys_stream stream) noexcept {
  struct winsize size {};
  return ioctl(descriptor_of(stream), TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}
