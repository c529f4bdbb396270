// The runtime runs while the tests do, since codes of system errors come from its tables; its lines stay off the
// console.
#include <gtest/gtest.h>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"

namespace {

class Runtime : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(qlib_lib_init_basic(), 0U);
    qlog_console_off();
  }
  void TearDown() override { qlib_lib_fini_basic(); }
};

testing::Environment* const runtime = testing::AddGlobalTestEnvironment(new Runtime);

}  // namespace
