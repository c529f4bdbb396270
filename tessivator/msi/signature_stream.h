// The stream of a package that holds its signature.
#pragma once

#include "common/qlib/qmem.h"
#include "msi/compound_file.h"

// Reads the message in the stream "\005DigitalSignature" of `package`: one DER SEQUENCE, without what may follow it.
// QERR_NOT_FOUND when there is none or it cannot be read whole; QERR_LOW_MEMORY. May throw std::bad_alloc.
[[nodiscard]] qerr_t signature_stream_read(compound_file& package, QmemPtr<std::byte>& bytes, std::uint32_t& length);
