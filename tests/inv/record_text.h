// Records for tests, their strings as values that can be compared, and what the code under test logs.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qstr.h"
#include "inv/inv_cfci.h"

inline std::unique_ptr<inv_cfci_t, inv_cfci_free> new_record() {
  std::unique_ptr<inv_cfci_t, inv_cfci_free> record(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
  record->cert_count = INV_CERTS_NOT_GATHERED;
  return record;
}

// Stands for a string that the record has not.
inline const std::u16string absent = u"(none)";
inline std::u16string text_or(const qchar* text) { return text == nullptr ? absent : std::u16string(text); }

// A started runtime that echoes its log.
class RuntimeTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(qlib_lib_init_basic(), 0U); }
  void TearDown() override { qlib_lib_fini_basic(); }

  // What `body` writes to standard output, with LF line ends.
  template <class Body>
  static std::string printed(Body&& body) {
    testing::internal::CaptureStdout();
    body();
    std::string text = testing::internal::GetCapturedStdout();
    std::erase(text, '\r');
    return text;
  }
};
