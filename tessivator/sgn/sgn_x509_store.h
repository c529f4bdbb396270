// Naming one certificate and writing its file. Internal; the public part is in sgn_x509.h.
#pragma once

#include "common/qlib/qerr.h"
#include "sgn/sgn_types.h"

// Computes the stem of a certificate unless it has one. May throw std::bad_alloc.
[[nodiscard]] qerr_t sgn_name_certificate(sgn_certificate& certificate);

// Writes the file of a named certificate found in `source`. May throw std::bad_alloc.
[[nodiscard]] qerr_t sgn_store_certificate(const sgn_certificate& certificate, const sgn_source& source,
                                           const qchar* output_directory, sgn_store_cache* cache);
