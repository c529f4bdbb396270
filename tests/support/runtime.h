// The one started runtime of all tests, and what is printed while a body runs.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"

// Wide texts, shown as UTF-8 when they differ.
#define EXPECT_TEXT(actual, expected) EXPECT_EQ(qstr_to_utf8(actual), qstr_to_utf8(expected))

// The log is not echoed on the console but inside printed() and logged(). All texts have LF line ends.
class Runtime : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(qlib_lib_init_basic(), QERR_OK);
    qlog_console_off();
  }
  void TearDown() override { qlib_lib_fini_basic(); }

  // What the code itself writes to standard output.
  template <class Body>
  static std::string said(Body&& body) {
    testing::internal::CaptureStdout();
    body();
    std::string text = testing::internal::GetCapturedStdout();
    std::erase(text, '\r');
    return text;
  }
  // The same with the log's lines, as masks and format have them.
  template <class Body>
  static std::string printed(Body&& body) {
    qlog_console_on();
    const std::string text = said(body);
    qlog_console_off();
    return text;
  }
  // All lines of `module`, each cut to its message.
  template <class Body>
  static std::string logged(std::uint32_t module, Body&& body) {
    EXPECT_EQ(qlog_set_module_bits(module, 127), QERR_OK);
    (void)qlog_recompute_union();
    (void)qlog_set_format(0);
    return printed(body);
  }
};
