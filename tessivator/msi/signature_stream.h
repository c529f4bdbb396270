// The stream of a package that holds its signature.
#pragma once

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"
#include "msi/msi_source.h"

// Reads the message in the stream "\005DigitalSignature" of the compound file whose bytes are `file` (null is allowed):
// one DER SEQUENCE, without what may follow it. 2 when there is none or it cannot be read whole; 12. May throw
// std::bad_alloc.
[[nodiscard]] qerr_t signature_stream_read(const std::shared_ptr<msi_source>& file, QmemPtr<std::byte>& bytes,
                                           std::uint32_t& length);
