// The console of Linux: a pipe that nobody reads, and the bytes of undecodable names.
#include <signal.h>
#include <unistd.h>

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
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    close_reader();
  }
  void close_reader() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }
  [[nodiscard]] std::string read_some() const {
    char bytes[100];
    const ssize_t count = read(ends_[0], bytes, sizeof(bytes));
    return {bytes, count > 0 ? static_cast<std::size_t>(count) : 0};
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

TEST_F(Console, NamesKeepTheirBytes) {
  std::string bytes;
  {
    const RedirectedOutput output;
    EXPECT_EQ(qstr_console_printf(u"a\xDCFFz\xD800\u00E9\n"), 6);
    bytes = output.read_some();
  }
  EXPECT_EQ(bytes, "a\xFFz\xEF\xBF\xBD\xC3\xA9\n");
}

}  // namespace
