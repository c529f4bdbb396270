// The program's signals, and the line that it shows while it works.
#include <gmock/gmock.h>
#include <signal.h>

#include <thread>

#include "support/scratch.h"
#include "utils/signing/brantle/brantle_progress.h"
#include "utils/signing/brantle/brantle_signals.h"

namespace {

using Progress = ScratchTest;

TEST(Signals, TheFirstCancelsAndTheSecondEndsAtOnce) {
  const auto signalled = [] {
    brantle_signals_begin();
    (void)raise(SIGTERM);
    if (qlib_is_cancelled()) (void)raise(SIGHUP);
  };
  EXPECT_EXIT(signalled(), testing::ExitedWithCode(129), "");
}

// Of the folder what fits, through the filter; and inside a file the line moves with what is read.
TEST_F(Progress, ShowsWhereItIs) {
  (void)setenv("BRANTLE_PROGRESS", "1", 1);
  const std::u16string path = put(u"f", std::string(7000, 'x'));
  const struct {
    bool certs_only;
    const char16_t* folder;
    const char *line, *totals;
  } cases[] = {
      {false, u"a\u202Eb", "1 files, 0 records, 0 certificates, 4.1 kB, ", "1 files, 0 records, 0 certificates, 0 B"},
      {true, u"a\xDCFF\u0007", "1 files, 0 certificates  a\xEF\xBF\xBD\xEF\xBF\xBD\r", "1 files, 0 certificates"}};
  for (const auto& c : cases) {
    BrantleProgress progress(c.certs_only);
    testing::internal::CaptureStderr();
    BrantleTotals totals;
    totals.files = 1;
    progress.onFile(std::u16string(c.folder) + u"/x", totals);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(get(path).size(), 7000U);
    progress.finish(totals, ", interrupted");
    const std::string end = std::string("\r") + c.totals + " in 0.";
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        testing::AllOf(testing::StartsWith(c.line), testing::HasSubstr(end), testing::EndsWith(" s, interrupted\n")));
  }
}

}  // namespace
