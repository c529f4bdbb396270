// Owners of OpenSSL's objects and of its errors. Internal to this component.
#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"

using BioPtr = std::unique_ptr<BIO, FreeWith<BIO_free>>;
using X509Ptr = std::unique_ptr<X509, FreeWith<X509_free>>;
using IssuerSerialPtr = std::unique_ptr<PKCS7_ISSUER_AND_SERIAL, FreeWith<PKCS7_ISSUER_AND_SERIAL_free>>;

struct SgnOpensslFree {
  void operator()(char* text) const noexcept { OPENSSL_free(text); }
};
using OpensslTextPtr = std::unique_ptr<char, SgnOpensslFree>;

// Takes away what its scope leaves in the thread's error queue, and nothing that was there before.
class SgnErrorScope {
 public:
  SgnErrorScope() noexcept { ERR_set_mark(); }
  SgnErrorScope(const SgnErrorScope&) = delete;
  SgnErrorScope& operator=(const SgnErrorScope&) = delete;
  ~SgnErrorScope() { ERR_pop_to_mark(); }
};

// Runs a body that may run out of memory; nothing is thrown out of it.
template <class Body>
[[nodiscard]] qerr_t sgn_guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (...) {  // only allocation throws here
    return QERR_LOW_MEMORY;
  }
}
