// The program's signals.
#include <signal.h>
#include <unistd.h>

#include "support/runtime.h"
#include "utils/signing/brantle/brantle_signals.h"

namespace {

TEST(Signals, TheFirstCancelsAndTheSecondEndsAtOnce) {
  const auto signalled = [](int first, int second) {
    brantle_signals_begin();
    (void)raise(first);
    if (!qlib_is_cancelled()) _exit(1);
    if (second != 0) (void)raise(second);
    _exit(second != 0 ? 2 : brantle_signals_result(0));
  };
  EXPECT_EXIT(signalled(SIGTERM, 0), testing::ExitedWithCode(143), "");
  EXPECT_EXIT(signalled(SIGTERM, SIGHUP), testing::ExitedWithCode(129), "");
}

}  // namespace
