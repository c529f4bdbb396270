#include "sgn/sgn_der.h"

#include "common/qlib/qbytes.h"
#include "common/qlib/qder.h"

namespace {

bool is_end(const qder_header& header) noexcept {
  return header.identifier == 0 && header.size == 2 && header.length == 0 && !header.indefinite;
}

// The length of the content of an element of open length; `content` is all that follows its header.
std::optional<std::size_t> open_length(Bytes content) noexcept {
  std::size_t open = 1;
  ByteReader in(content);
  for (;;) {
    const std::size_t before = content.size() - in.remaining();
    const auto header = qder_read(in.rest());
    if (!header || !in.skip(header->size)) return std::nullopt;
    if (header->indefinite) {
      ++open;
    } else if (is_end(*header)) {
      if (--open == 0) return before;
    } else if (!in.skip(header->length)) {
      return std::nullopt;
    }
  }
}

}  // namespace

std::optional<sgn_element> sgn_elements::next() noexcept {
  const auto header = qder_read(rest_);
  if (!header || is_end(*header)) return std::nullopt;
  const Bytes behind = rest_.subspan(header->size);
  std::uint64_t length = header->length;
  std::size_t end_size = 0;
  if (header->indefinite) {
    const auto found = open_length(behind);
    if (!found) return std::nullopt;
    length = *found;
    end_size = 2;
  }
  const auto content = qbytes_slice(behind, 0, length);
  if (!content) return std::nullopt;
  const std::size_t size = header->size + content->size() + end_size;
  const auto tag_class = static_cast<std::uint8_t>(header->identifier & 0xC0);
  const sgn_element out{{tag_class, header->tag}, header->constructed, rest_.first(size), *content};
  rest_ = rest_.subspan(size);
  return out;
}

std::optional<sgn_element> sgn_elements::next(sgn_tag wanted) noexcept {
  const Bytes before = rest_;
  auto element = next();
  if (element && element->tag == wanted) return element;
  rest_ = before;
  return std::nullopt;
}

sgn_elements sgn_inside(Bytes content, sgn_tag wanted) noexcept {
  const auto element = sgn_elements(content).next(wanted);
  return element ? sgn_elements(element->content) : sgn_elements();
}

Bytes sgn_octets(const sgn_element& string, std::string& store) {
  if (!string.constructed) return string.content;
  // Pieces that hold pieces are read where they stand: their headers are stepped over, and what ends them, too.
  ByteReader in(string.content);
  store.clear();
  while (const auto header = qder_read(in.rest())) {
    if (!in.skip(header->size)) break;
    if (header->constructed || is_end(*header)) continue;
    Bytes piece;
    if (!in.take(header->length, piece)) break;
    store.append(sgn_text(piece));
  }
  return std::as_bytes(std::span(store));
}
