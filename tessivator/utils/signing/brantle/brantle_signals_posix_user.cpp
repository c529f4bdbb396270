// Signals of POSIX systems.
#include <signal.h>
#include <unistd.h>

#include "common/qlib/qlib.h"
#include "utils/signing/brantle/brantle_signals.h"

namespace {

// The exit status that a shell shows for a signal.
constexpr int signal_result = 128;

volatile sig_atomic_t received = 0;

extern "C" void onSignal(int number) {
  if (received != 0) ::_exit(signal_result + number);
  received = number;
  qlib_cancel();
}

}  // namespace

void brantle_signals_begin() noexcept {
  // A limit on the size of files (ulimit -f) fails the write that meets it, not the program.
  (void)::signal(SIGXFSZ, SIG_IGN);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    if (::sigaction(number, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) continue;
    struct sigaction own {};
    own.sa_handler = onSignal;
    ::sigemptyset(&own.sa_mask);
    (void)::sigaction(number, &own, nullptr);
  }
}

std::int32_t brantle_signals_result(std::int32_t result) noexcept {
  return received != 0 ? signal_result + received : result;
}
