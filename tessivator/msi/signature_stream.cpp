#include "msi/signature_stream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/qlib/qder.h"
#include "common/qlib/qlog.h"
#include "msi/msi_signature.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

qerr_t signature_message_read(msi_source& stream, QmemPtr<std::byte>& bytes, std::uint32_t& length) noexcept {
  std::array<std::byte, QDER_HEAD> bytes_of_head{};
  const auto head = std::span(bytes_of_head).first(std::min<std::size_t>(QDER_HEAD, stream.size()));
  if (head.empty() || !stream.read(0, head)) return QERR_NOT_FOUND;
  const std::uint64_t whole = std::min(qder_signature_size(head, stream.size()), stream.size());
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(whole, MSI_MAX_SIGNATURE));
  QmemPtr<std::byte> message(static_cast<std::byte*>(qmem_calloc(size, 1)));
  if (!message) return QERR_LOW_MEMORY;
  if (!stream.read(0, std::span(message.get(), size))) return QERR_NOT_FOUND;
  bytes = std::move(message);
  length = static_cast<std::uint32_t>(size);
  return QERR_OK;
}

std::unique_ptr<msi_source> signature_stream_open(msi_package& package) {
  static constexpr std::u16string_view name =
      u"\x0005"
      u"DigitalSignature";
  auto stream = package.compound().stream(name);
  if (!stream && package.compound().has_content(name)) {
    QLOG(QLOG_WARNING, u"The signature of %s cannot be read: its sectors are damaged\n", package.path());
  }
  return stream;
}

qerr_t signature_stream_read(msi_package& package, QmemPtr<std::byte>& bytes, std::uint32_t& length) {
  const auto stream = signature_stream_open(package);
  return stream ? signature_message_read(*stream, bytes, length) : QERR_NOT_FOUND;
}
