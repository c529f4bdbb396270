// Headers of ASN.1 elements in BER and DER (X.690, 8.1). The content need not be present.
#pragma once

#include <limits>
#include <optional>

#include "common/qlib/qtypes.h"

// The largest signature that is read and decoded. Real ones have some ten thousand bytes; a file may claim anything.
inline constexpr std::uint64_t QDER_MOST_SIGNATURE = std::uint64_t{16} << 20;

struct qder_header {
  std::uint8_t identifier = 0;  // the first octet: class, form, and the tag when it is below 31
  std::uint32_t tag = 0;        // its number, which may stand in the long form whatever it is
  bool constructed = false;
  bool indefinite = false;   // the content ends with an end-of-contents element instead; `length` is then 0
  std::size_t size = 0;      // of the header
  std::uint64_t length = 0;  // of the content
};

// The header at the start of `bytes`; nothing when it is malformed or incomplete.
[[nodiscard]] inline std::optional<qder_header> qder_read(Bytes bytes) noexcept {
  const auto at = [&](std::size_t i) { return std::to_integer<std::uint8_t>(bytes[i]); };
  if (bytes.size() < 2) return std::nullopt;
  qder_header out;
  out.identifier = at(0);
  out.constructed = (out.identifier & 0x20) != 0;
  out.size = 1;
  out.tag = out.identifier & 0x1F;
  if (out.tag == 0x1F) {  // the tag's number follows, seven bits an octet
    out.tag = 0;
    for (std::uint8_t octet = 0x80; (octet & 0x80) != 0; out.tag = out.tag << 7 | (octet & 0x7F)) {
      if (out.size >= bytes.size() || out.tag > (std::numeric_limits<std::int32_t>::max() >> 7)) return std::nullopt;
      octet = at(out.size++);
    }
    if (out.size >= bytes.size()) return std::nullopt;
  }
  const std::uint8_t form = at(out.size++);
  if (form <= 0x80) {
    out.indefinite = form == 0x80;
    out.length = out.indefinite ? 0 : form;
    return out.indefinite && !out.constructed ? std::nullopt : std::optional(out);
  }
  const std::size_t octets = form & 0x7F;
  if (octets > bytes.size() - out.size) return std::nullopt;
  for (std::size_t i = 0; i < octets; ++i) {
    if (out.length > (std::numeric_limits<std::int64_t>::max() >> 8)) return std::nullopt;
    out.length = out.length << 8 | at(out.size++);
  }
  return out;
}

// The bytes that qder_signature_size needs.
inline constexpr std::size_t QDER_HEAD = 16;

// How many of `available` bytes belong to the signature that starts with `head`: the length in its header, or all of
// them when the length is open or the header is malformed.
[[nodiscard]] inline std::uint64_t qder_signature_size(Bytes head, std::uint64_t available) noexcept {
  const auto header = qder_read(head);
  return header && !header->indefinite ? header->size + header->length : available;
}
