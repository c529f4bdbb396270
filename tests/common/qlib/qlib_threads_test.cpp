// What host threads share: log masks, sinks, error texts. Run under ThreadSanitizer.
#include <thread>
#include <vector>

#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

constexpr int THREADS = 8;

template <class Body>
void run_threads(Body body) {
  std::vector<std::jthread> threads;  // waited for at the end
  for (int i = 0; i < THREADS; ++i) threads.emplace_back([i, body] { body(i); });
}

using Threads = Runtime;

TEST_F(Threads, WriteWholeLines) {
  constexpr int LINES = 50;
  const auto path = scratch_folder("lines") / "threads.log";
  (void)qlog_set_format(0);
  ASSERT_EQ(qlog_set_log_file(path.u16string().c_str()), 0U);
  const std::string console = printed([] {
    run_threads([](int thread) {
      const std::u16string line(100, static_cast<qchar>(u'a' + thread));
      for (int i = 0; i < LINES; ++i) EXPECT_EQ(qlog_write(QLOG_ERROR, QLOG_PROG, "f", "x", 1, u"%s", line), 0U);
    });
  });
  ASSERT_EQ(qlog_set_log_file(u""), 0U);
  for (const std::string& text : {console, utf16_text(path)}) {
    ASSERT_EQ(text.size(), std::size_t{THREADS} * LINES * 101);
    for (std::size_t i = 0; i < text.size(); i += 101) {
      EXPECT_EQ(text.substr(i, 101), std::string(100, text[i]) + "\n");
    }
  }
}

TEST_F(Threads, ChangeMasksWhileOthersLog) {
  static constexpr std::uint32_t module_id = QLOG_PROG;
  const auto file = scratch_folder("masks") / "first.log";
  run_threads([&file](int thread) {
    for (int i = 0; i < 100; ++i) {
      if (thread == 0) {
        EXPECT_EQ(qlog_set_logtype(i % 2 == 0 ? u"PROG=0x1f" : nullptr), 0U);
      } else if (thread == 1) {
        (void)qlog_set_module_bits(QLOG_PROG, QLOG_DETAIL);
        (void)qlog_recompute_union();
        (void)qlog_clear_module_bits(QLOG_PROG, QLOG_DETAIL);
      } else if (thread == 2) {
        (void)qlog_set_format(i % 2 == 0 ? 127 : 0);
        EXPECT_EQ(qlog_set_log_file(i % 2 == 0 ? file.u16string().c_str() : u""), 0U);
      } else {
        QLOG(QLOG_DETAIL, u"line %d", i);
        QLOG(QLOG_ERROR, u"line %d: %s", i, qerr_get_string(QERR_SYSTEM_BASE + i));
        qlog_end_repeats();
        // A user who comes and goes takes nothing from the others.
        EXPECT_EQ(qlib_lib_init_basic(), 0U);
        qlib_lib_fini_basic();
      }
    }
  });
  EXPECT_EQ(qlog_set_log_file(u""), 0U);
  EXPECT_EQ(qlog_set_logtype(nullptr), 0U);
}

}  // namespace
