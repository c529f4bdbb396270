// The list of certificate names that an extraction hands out.
#pragma once

#include <memory>

#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// One stored certificate: its stem, and the SHA-256 of its DER. The newest comes first. Owned by whoever received the
// list.
struct sgn_cert_name {
  qchar* name;
  sgn_cert_name* next;
  std::uint8_t sha256[32];
};

// Releases a whole list with its texts; null is allowed.
void sgn_cert_names_free(sgn_cert_name* list) noexcept;
using SgnCertNamesOwner = std::unique_ptr<sgn_cert_name, FreeWith<sgn_cert_names_free>>;
