// The decoder of PKCS#7 structures. Internal.
#pragma once

#include "sgn/sgn_outline.h"
#include "sgn/sgn_types.h"

// Decodes the outlined structure into `p7`. False when the PKCS#7 structure, one of its certificates or one of its
// signers is malformed. May throw std::bad_alloc. `cache` may be null.
[[nodiscard]] bool sgn_asn1_decode(const sgn_outline& outline, sgn_p7& p7, sgn_store_cache* cache);

// Decodes one certificate without its public key; null when it is not a certificate. May throw std::bad_alloc.
[[nodiscard]] sgn_certificate_ptr sgn_decode_certificate(Bytes der);
