#include "sgn/sgn_outline.h"

#include <algorithm>
#include <array>

#include "common/qlib/qbytes.h"
#include "common/qlib/qder.h"

namespace {

// Class and tag of an element. OpenSSL checks neither the form of a set nor that a tag has its shortest encoding.
struct kind {
  std::uint8_t tag_class;
  std::uint32_t tag;
};
constexpr kind object_identifier{0x00, 6};
constexpr kind sequence{0x00, 16};
constexpr kind set{0x00, 17};
constexpr kind context_0{0x80, 0};
constexpr kind context_1{0x80, 1};

bool is(const qder_header& header, const kind& wanted) noexcept {
  return (header.identifier & 0xC0) == wanted.tag_class && header.tag == wanted.tag;
}

// Headers, and the end of elements of open length, as in X.690, 8.1.
struct decoder_rules {
  static std::optional<qder_header> header(Bytes at) noexcept { return qder_read(at); }
  static bool is_end(const qder_header& header) noexcept {
    return header.identifier == 0 && header.size == 2 && !header.indefinite && header.length == 0;
  }
};

// The same as the file reader of OpenSSL does it, which looks for the end of a structure before decoding: it accepts no
// longer headers and does not check the class.
struct reader_rules {
  static std::optional<qder_header> header(Bytes at) noexcept {
    constexpr std::size_t most_header = 7;
    return qder_read(at.first(std::min(at.size(), most_header)));
  }
  static bool is_end(const qder_header& header) noexcept {
    return header.tag == 0 && !header.indefinite && header.length == 0;
  }
};

// Skips one element of any form; false when it does not fit.
template <class Rules>
bool skip_element(ByteReader& in) noexcept {
  std::size_t open = 0;
  do {
    const auto header = Rules::header(in.rest());
    if (!header || !in.skip(header->size)) return false;
    if (header->indefinite) {
      ++open;
    } else if (open != 0 && Rules::is_end(*header)) {
      --open;
    } else if (!in.skip(header->length)) {
      return false;
    }
  } while (open != 0);
  return true;
}

// The header of the next element; nothing when it is of another kind.
std::optional<qder_header> at(const ByteReader& in, const kind& wanted) noexcept {
  const auto header = qder_read(in.rest());
  return header && is(*header, wanted) ? header : std::nullopt;
}

// Enters the next element: `in` becomes its content; with open length more may follow.
bool enter(ByteReader& in, const kind& wanted) noexcept {
  const auto header = at(in, wanted);
  if (!header || !in.skip(header->size)) return false;
  if (header->indefinite) return true;
  const auto content = qbytes_slice(in.rest(), 0, header->length);
  if (content) in = ByteReader(*content);
  return content.has_value();
}

void read_set(ByteReader in, const kind& wanted, sgn_set& out) {
  if (!enter(in, wanted)) return;
  for (;;) {
    const Bytes rest = in.rest();
    const auto header = qder_read(rest);
    if (!header || decoder_rules::is_end(*header) || !skip_element<decoder_rules>(in)) return;
    ++out.count;
    if (out.members.size() < sgn_most_of_a_set) out.members.push_back(rest.first(rest.size() - in.remaining()));
  }
}

// The number of fields before the certificates: version, digestAlgorithms, contentInfo for signed data
// (1.2.840.113549.1.7.2); version, recipientInfos, digestAlgorithms, encryptedContentInfo for signed and enveloped data
// (1.7.4). 0 for others.
int fields_before_sets(Bytes content_type) noexcept {
  constexpr std::array<std::uint8_t, 8> pkcs7{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
  const bool known = content_type.size() == pkcs7.size() + 1 &&
                     std::equal(pkcs7.begin(), pkcs7.end(), content_type.begin(),
                                [](std::uint8_t a, std::byte b) { return std::byte{a} == b; });
  if (!known) return 0;
  return content_type.back() == std::byte{2} ? 3 : content_type.back() == std::byte{4} ? 4 : 0;
}

// For the structure see sgn_asn1.cpp.
void read_sets(Bytes structure, sgn_outline& out) {
  ByteReader in(structure);
  if (!enter(in, sequence) || !at(in, object_identifier)) return;
  ByteReader content_type = in;
  if (!enter(content_type, object_identifier) || !skip_element<decoder_rules>(in)) return;
  const int fields = fields_before_sets(content_type.rest());
  if (fields == 0 || !enter(in, context_0) || !enter(in, sequence)) return;
  for (int i = 0; i < fields; ++i) {
    if (!skip_element<decoder_rules>(in)) return;
  }
  read_set(in, context_0, out.certificates);
  for (const kind& optional : {context_0, context_1}) {
    if (at(in, optional) && !skip_element<decoder_rules>(in)) return;
  }
  read_set(in, set, out.signers);
}

// Whether OpenSSL may parse elements inside one that is not marked as constructed, in a set.
bool may_hold_elements(const qder_header& header) noexcept {
  return header.constructed || is(header, sequence) || is(header, set) || is(header, context_0) ||
         is(header, context_1);
}

// Counts at least as many elements as decoding can create. Malformed content only ends the element around it: the
// decoder keeps parameters of any type unparsed.
std::size_t count_elements(Bytes content, int depth) noexcept {
  constexpr int most_depth = 128;  // the decoder gives up earlier
  std::size_t count = 0;
  ByteReader in(content);
  while (const auto header = qder_read(in.rest())) {
    const auto inner = qbytes_slice(in.rest(), header->size, header->length);
    if (!inner || !in.skip(header->size)) break;
    if (!decoder_rules::is_end(*header)) ++count;
    if (header->indefinite) continue;
    if (depth < most_depth && may_hold_elements(*header)) count += count_elements(*inner, depth + 1);
    if (!in.skip(inner->size())) break;
  }
  return count;
}

}  // namespace

bool sgn_outline_read(Bytes signature, sgn_outline& out) {
  ByteReader in(signature);
  if (!skip_element<reader_rules>(in)) return false;
  out.bytes = signature.first(signature.size() - in.remaining());
  out.elements = count_elements(out.bytes, 0);
  read_sets(out.bytes, out);
  return true;
}
