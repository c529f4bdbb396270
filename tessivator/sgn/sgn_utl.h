// Helpers of the signature routines: paths of certificate files, texts of certificate names.
#pragma once

#include "common/qlib/qtypes.h"

struct x509_st;  // OpenSSL's X509

// The path of the certificate file `stem` in `directory`. A null directory means "Certificates" in the internal
// directory (utl_get_install_dir_alloc); its failure is logged and returned. A null stem gives the directory itself
// with a separator at the end. The caller frees the result with qmem_free.
[[nodiscard]] qerr_t sgn_get_internal_dir_alloc(qchar** out, const qchar* directory, const qchar* stem) noexcept;

// The one-line text of the subject or issuer of a certificate; the caller frees it with qmem_free. Null when memory
// runs out, without a certificate, or for a name that is too long.
[[nodiscard]] qchar* sgn_get_subject_alloc(const x509_st* certificate) noexcept;
[[nodiscard]] qchar* sgn_get_issuer_alloc(const x509_st* certificate) noexcept;
