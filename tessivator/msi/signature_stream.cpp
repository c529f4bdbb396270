#include "msi/signature_stream.h"

#include <algorithm>
#include <array>
#include <limits>

#include "msi/compound_file.h"

namespace {

// The bytes that the message at the start of `stream` takes: a DER SEQUENCE with its header; the whole stream when the
// header leaves the length open (BER). 0 when no message starts there or the stream is shorter than it says.
std::uint64_t message_length(msi_source& stream) noexcept {
  std::array<std::byte, 6> header{};  // tag, form, at most four bytes of length
  const std::uint64_t size = stream.size();
  const auto present = static_cast<std::size_t>(std::min<std::uint64_t>(header.size(), size));
  if (present < 2 || !stream.read(0, std::span(header).first(present)) || header[0] != std::byte{0x30}) return 0;
  const auto form = std::to_integer<std::uint8_t>(header[1]);
  if (form == 0x80) return size;
  std::uint64_t length = form;
  const std::size_t extra = form > 0x80 ? form - std::size_t{0x80} : 0;
  if (extra > 4 || 2 + extra > present) return 0;
  if (extra > 0) length = 0;
  for (std::size_t i = 0; i < extra; ++i) length = length << 8 | std::to_integer<std::uint8_t>(header[2 + i]);
  return length <= size - 2 - extra ? 2 + extra + length : 0;
}

}  // namespace

qerr_t signature_stream_read(const std::shared_ptr<msi_source>& file, QmemPtr<std::byte>& bytes,
                             std::uint32_t& length) {
  const auto package = compound_open(file);
  if (!package) return QERR_NOT_FOUND;
  const auto stream = package->stream("\005DigitalSignature");
  if (!stream) return QERR_NOT_FOUND;
  // The stream's size was checked against the file's when the directory was read.
  const std::uint64_t size = message_length(*stream);
  if (size == 0 || size > std::numeric_limits<std::uint32_t>::max()) return QERR_NOT_FOUND;
  bytes.reset(static_cast<std::byte*>(qmem_calloc(static_cast<std::size_t>(size), 1)));
  if (!bytes) return QERR_LOW_MEMORY;
  if (!stream->read(0, std::span(bytes.get(), static_cast<std::size_t>(size)))) return QERR_NOT_FOUND;
  length = static_cast<std::uint32_t>(size);
  return QERR_OK;
}
