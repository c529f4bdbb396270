#include "msi/signature_stream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "msi/msi_signature.h"

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

qerr_t signature_message_read(msi_source& stream, QmemPtr<std::byte>& bytes, std::uint32_t& length) noexcept {
  const std::uint64_t whole = message_length(stream);
  if (whole == 0) return QERR_NOT_FOUND;
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(whole, MSI_MAX_SIGNATURE));
  QmemPtr<std::byte> message(static_cast<std::byte*>(qmem_calloc(size, 1)));
  if (!message) return QERR_LOW_MEMORY;
  if (!stream.read(0, std::span(message.get(), size))) return QERR_NOT_FOUND;
  bytes = std::move(message);
  length = static_cast<std::uint32_t>(size);
  return QERR_OK;
}

std::unique_ptr<msi_source> signature_stream_open(compound_file& package) {
  return package.stream(
      u"\x0005"
      u"DigitalSignature");
}

qerr_t signature_stream_read(compound_file& package, QmemPtr<std::byte>& bytes, std::uint32_t& length) {
  const auto stream = signature_stream_open(package);
  return stream ? signature_message_read(*stream, bytes, length) : QERR_NOT_FOUND;
}
