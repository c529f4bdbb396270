// Small helpers of the signature routines: places of certificate files, texts of certificate names.
#pragma once

#include "common/qlib/qtypes.h"

struct x509_st;  // OpenSSL's X509

// The path of the certificate file `stem` in `directory`. A null directory stands for "Certificates" in the internal
// directory (utl_get_install_dir_alloc), whose failure is logged and returned. A null stem gives the directory itself
// with a separator at its end. The result is freed with qmem_free.
[[nodiscard]] qerr_t sgn_get_internal_dir_alloc(qchar** out, const qchar* directory, const qchar* stem) noexcept;

// The one-line text of a certificate's subject and issuer, freed with qmem_free; null without memory, for a missing
// certificate, or for a name too long to be written in one line.
[[nodiscard]] qchar* sgn_get_subject_alloc(const x509_st* certificate) noexcept;
[[nodiscard]] qchar* sgn_get_issuer_alloc(const x509_st* certificate) noexcept;
