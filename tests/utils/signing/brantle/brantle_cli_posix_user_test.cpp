// The program's signals, and the line that it shows while it works.
#include <gmock/gmock.h>
#include <signal.h>

#include <thread>

#include "support/runtime.h"
#include "utils/signing/brantle/brantle_progress.h"
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

// Of the folder as much as fits, and nothing that moves the cursor or turns the text's direction.
TEST(Progress, ShowsWhereItIs) {
  (void)setenv("BRANTLE_PROGRESS", "1", 1);
  BrantleProgress progress;
  testing::internal::CaptureStderr();
  progress.onFile(u"too soon/x", {});
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  progress.onFile(u"abc\u200A\u200B\u200F\u2010\u2027\u2028\u202E\u202F\u2065\u2066\u2069\u206A\x1F~\x7F\x9F\xA0/x",
                  {});
  progress.finish({});
  const std::string totals = "0 files, 0 records, 0 certificates, 0 B";
  const std::string folder = qstr_to_utf8(u"bc\u200A??\u2010\u2027??\u202F\u2065??\u206A?~??\xA0");
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      testing::StartsWith(totals + ", 0 B/s  " + folder + "\r" + std::string(73, ' ') + "\r" + totals + " in "));
}

}  // namespace
