// The program's signals.
#include <signal.h>

#include "support/runtime.h"
#include "utils/signing/brantle/brantle_signals.h"

namespace {

TEST(Signals, TheFirstCancelsAndTheSecondEndsAtOnce) {
  const auto signalled = [] {
    brantle_signals_begin();
    (void)raise(SIGTERM);
    if (qlib_is_cancelled()) (void)raise(SIGHUP);
  };
  EXPECT_EXIT(signalled(), testing::ExitedWithCode(129), "");
}

}  // namespace
