#include "sgn/sgn_names.h"

#include <algorithm>

#include "common/qlib/qstr.h"

bool sgn_name_list::push(const sgn_certificate& certificate) noexcept {
  QmemPtr<qchar> name(qstr_dup(certificate.stem.data()));
  auto* const node = static_cast<sgn_cert_name*>(qmem_calloc(1, sizeof(sgn_cert_name)));
  if (!name || node == nullptr) {
    qmem_free(node);
    return false;
  }
  node->name = name.release();
  node->next = head_.release();
  std::copy(certificate.digest.begin(), certificate.digest.end(), node->sha256);
  head_.reset(node);
  return true;
}

void sgn_cert_names_free(sgn_cert_name* list) noexcept {
  while (list != nullptr) {
    sgn_cert_name* const next = list->next;
    qmem_free(list->name);
    qmem_free(list);
    list = next;
  }
}
