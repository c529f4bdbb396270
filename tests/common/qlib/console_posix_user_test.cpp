// The console of Linux: a pipe that nobody reads, and one that is read late.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/fixture_table.h"
#include "support/runtime.h"

namespace {

class Console : public Runtime {
 protected:
  // What `body` returns while standard output leads into a pipe, of which this leaves the end to read from.
  template <class Body>
  int piped(Body body) {
    int ends[2] = {-1, -1};
    const int saved = dup(STDOUT_FILENO);
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    EXPECT_EQ(dup2(ends[1], STDOUT_FILENO), STDOUT_FILENO);
    close(ends[1]);
    const int result = body(ends[0]);
    EXPECT_EQ(dup2(saved, STDOUT_FILENO), STDOUT_FILENO);
    close(saved);
    return result;
  }
};

TEST_F(Console, ClosedPipeIsAFailureAndNoSignal) {
  auto* const before = signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(piped([](int reader) { return close(reader) + qstr_console_printf(u"lost\n"); }), -1);
  sigset_t pending;
  EXPECT_EQ(sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  EXPECT_EQ(signal(SIGPIPE, before), SIG_DFL);
}

// Threads of a host print at once; a signal that one of them has kept waiting for itself stays.
TEST_F(Console, ClosedPipeOfAHostWithThreads) {
  auto* const before = signal(SIGPIPE, SIG_DFL);
  std::atomic<int> failed{0};
  std::atomic<int> kept{0};
  const auto print = [&](bool keeps) {
    sigset_t own, pending;
    sigemptyset(&own);
    sigaddset(&own, SIGPIPE);
    if (keeps) pthread_sigmask(SIG_BLOCK, &own, nullptr);
    if (keeps) (void)raise(SIGPIPE);
    for (int i = 0; i < 100; ++i) failed += qstr_console_printf(u"lost\n") == -1 ? 1 : 0;
    kept += sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == (keeps ? 1 : 0) ? 1 : 0;
  };
  (void)piped([&](int reader) {
    std::vector<std::thread> threads;
    close(reader);
    for (int i = 0; i < 8; ++i) threads.emplace_back(print, i == 3);
    for (std::thread& thread : threads) thread.join();
    return 0;
  });
  EXPECT_EQ(failed, 800);
  EXPECT_EQ(kept, 8);
  EXPECT_EQ(signal(SIGPIPE, before), SIG_DFL);
}

// A pipe that does not block and holds less than is written: the reader is waited for.
TEST_F(Console, ReaderThatIsLateLosesNothing) {
  const std::u16string text(300000, u'x');
  std::size_t bytes = 0;
  std::thread late;
  EXPECT_EQ(piped([&](int reader) {
              late = std::thread([&bytes, reader] {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                bytes = file_text("/dev/fd/" + std::to_string(reader)).size();
                close(reader);
              });
              return qstr_console_printf(u"%s", text);
            }),
            300000);
  late.join();
  EXPECT_EQ(bytes, text.size());
}

// It holds 64 KiB: the second line waits in vain, the third no more.
TEST_F(Console, ReaderThatNeverReadsCostsFiveSecondsOnce) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(piped([&](int reader) {
              int lost = 0;
              for (int line = 0; line < 4; ++line) lost += qstr_console_printf(u"%s", std::u16string(60000, u'x')) < 0;
              return close(reader) + lost;
            }),
            3);
  const auto seconds = std::chrono::steady_clock::now() - start;
  EXPECT_GT(seconds, std::chrono::seconds(4));
  EXPECT_LT(seconds, std::chrono::seconds(8));
}

}  // namespace
