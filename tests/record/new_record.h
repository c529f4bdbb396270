// Records for tests.
#pragma once

#include "common/qlib/qmem.h"
#include "record/inv_record.h"
#include "support/runtime.h"

inline InvCfciOwner new_record() {
  InvCfciOwner record(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
  record->cert_count = INV_CERTS_NOT_GATHERED;
  return record;
}
