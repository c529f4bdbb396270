#include "record/inv_record.h"

namespace {

template <class T>
void free_slot(T*& slot) noexcept {
  qmem_free(slot);
  slot = nullptr;
}

}  // namespace

void inv_free_cfci(inv_cfci_t* record) noexcept {
  if (record == nullptr) return;
  free_slot(record->reserved_after_sha1);
  free_slot(record->FileVersion);
  free_slot(record->OriginalFilename);
  free_slot(record->CompanyName);
  free_slot(record->ProductName);
  free_slot(record->ProductVersion);
  free_slot(record->reserved_after_classification);
  free_slot(record->certs);
  free_slot(record->reserved_after_certs);
  free_slot(record->reserved_after_sha256[0]);
  free_slot(record->reserved_after_sha256[1]);
  free_slot(record->FileDescription);
  free_slot(record->reserved_after_description);
  free_slot(record->InternalName);
  free_slot(record->manifest_description);
  qmem_free(record);
}
