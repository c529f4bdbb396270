// Owners of OpenSSL objects, and its error queue. Internal to this component.
#pragma once

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"

using SgnX509Owner = std::unique_ptr<X509, FreeWith<X509_free>>;
using SgnIssuerSerialOwner = std::unique_ptr<PKCS7_ISSUER_AND_SERIAL, FreeWith<PKCS7_ISSUER_AND_SERIAL_free>>;

// Removes the errors that its scope adds to the queue of the thread, but not earlier ones.
class sgn_error_scope {
 public:
  sgn_error_scope() noexcept { ERR_set_mark(); }
  sgn_error_scope(const sgn_error_scope&) = delete;
  sgn_error_scope& operator=(const sgn_error_scope&) = delete;
  ~sgn_error_scope() { ERR_pop_to_mark(); }
};

// Runs a body that may run out of memory; does not throw.
template <class Body>
[[nodiscard]] qerr_t sgn_guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (...) {  // only allocation throws here
    return QERR_LOW_MEMORY;
  }
}
