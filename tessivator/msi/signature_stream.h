// The stream of a package that holds its signature.
#pragma once

#include "common/qlib/qmem.h"
#include "msi/compound_file.h"

// The message at the start of `stream`: one DER SEQUENCE, without what may follow it; of a length that is left open,
// the whole stream. QERR_NOT_FOUND when there is none or it cannot be read whole; QERR_LOW_MEMORY.
[[nodiscard]] qerr_t signature_message_read(msi_source& stream, QmemPtr<std::byte>& bytes,
                                            std::uint32_t& length) noexcept;

// The stream "\005DigitalSignature" of `package`; null when there is none or it is not whole. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<msi_source> signature_stream_open(compound_file& package);

// The message in that stream. May throw std::bad_alloc.
[[nodiscard]] qerr_t signature_stream_read(compound_file& package, QmemPtr<std::byte>& bytes, std::uint32_t& length);
