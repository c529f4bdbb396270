// The stream of a package that holds its signature.
#pragma once

#include "common/qlib/qmem.h"
#include "msi/package_object.h"

// The message at the start of `stream`, without what follows it; where the message's header is damaged, leaves the
// length open, or tells more than the stream holds, the whole stream. At most MSI_MAX_SIGNATURE bytes. QERR_NOT_FOUND
// when the stream is empty or cannot be read; QERR_LOW_MEMORY.
[[nodiscard]] qerr_t signature_message_read(msi_source& stream, QmemPtr<std::byte>& bytes,
                                            std::uint32_t& length) noexcept;

// The stream "\005DigitalSignature" of `package`; null when there is none, it is empty or its sectors are damaged, of
// which a log line tells. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<msi_source> signature_stream_open(msi_package& package);

// The message in that stream. May throw std::bad_alloc.
[[nodiscard]] qerr_t signature_stream_read(msi_package& package, QmemPtr<std::byte>& bytes, std::uint32_t& length);
