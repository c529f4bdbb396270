// The console of Linux: a pipe that nobody reads, one that is read late, and the bytes of undecodable names.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/runtime.h"

namespace {

// Standard output leads into a pipe until the end of the scope.
class RedirectedOutput {
 public:
  RedirectedOutput() : saved_(dup(STDOUT_FILENO)) {
    EXPECT_EQ(pipe(ends_), 0);
    EXPECT_EQ(dup2(ends_[1], STDOUT_FILENO), STDOUT_FILENO);
    close(ends_[1]);
  }
  RedirectedOutput(const RedirectedOutput&) = delete;
  RedirectedOutput& operator=(const RedirectedOutput&) = delete;
  ~RedirectedOutput() {
    restore();
    close(ends_[0]);
  }
  void restore() {
    if (saved_ < 0) return;
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    saved_ = -1;
  }
  void close_reader() {
    close(ends_[0]);
    ends_[0] = -1;
  }
  [[nodiscard]] std::string read_all() const {
    std::string all;
    char bytes[4096];
    for (ssize_t count = 0; (count = read(ends_[0], bytes, sizeof(bytes))) > 0;) {
      all.append(bytes, static_cast<std::size_t>(count));
    }
    return all;
  }

 private:
  int saved_;
  int ends_[2] = {-1, -1};
};

using Console = Runtime;

TEST_F(Console, ClosedPipeIsAFailureAndNoSignal) {
  struct sigaction before {};
  struct sigaction fatal {};
  fatal.sa_handler = SIG_DFL;
  ASSERT_EQ(sigaction(SIGPIPE, &fatal, &before), 0);
  int result = 0;
  {
    RedirectedOutput output;
    output.close_reader();
    result = qstr_console_printf(u"lost\n");
  }
  EXPECT_EQ(result, -1);
  sigset_t pending;
  sigemptyset(&pending);
  EXPECT_EQ(sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  EXPECT_EQ(sigaction(SIGPIPE, &before, nullptr), 0);
}

// A pipe that does not block and holds less than is written: the reader is waited for.
TEST_F(Console, ReaderThatIsLateLosesNothing) {
  std::string bytes;
  RedirectedOutput output;
  ASSERT_EQ(fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK), 0);
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    bytes = output.read_all();
  });
  const std::u16string text(300000, u'x');
  EXPECT_EQ(qstr_console_printf(u"%s", text), 300000);
  output.restore();
  reader.join();
  EXPECT_EQ(bytes.size(), text.size());
}

TEST_F(Console, NamesKeepTheirBytes) {
  RedirectedOutput output;
  EXPECT_EQ(qstr_console_printf(u"a\xDCFFz\xD800\u00E9\n"), 6);
  output.restore();
  EXPECT_EQ(output.read_all(), "a\xFFz\xEF\xBF\xBD\xC3\xA9\n");
}

}  // namespace
