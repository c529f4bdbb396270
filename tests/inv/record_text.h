// Records for tests, their strings as values that can be compared, and what the code under test logs.
#pragma once

#include <memory>
#include <string>

#include "common/qlib/qmem.h"
#include "inv/inv_cfci.h"
#include "support/runtime.h"

inline InvCfciOwner new_record() {
  InvCfciOwner record(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
  record->cert_count = INV_CERTS_NOT_GATHERED;
  return record;
}

// Stands for a string that the record has not.
inline const std::u16string absent = u"(none)";
inline std::u16string text_or(const qchar* text) { return text == nullptr ? absent : std::u16string(text); }
