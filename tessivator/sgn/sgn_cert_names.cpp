#include "sgn/sgn_cert_names.h"

void sgn_cert_names_free(sgn_cert_name* list) noexcept {
  while (list != nullptr) {
    sgn_cert_name* const next = list->next;
    qmem_free(list->name);
    qmem_free(list);
    list = next;
  }
}
