#include "sgn/sgn_catalogue.h"

#include "sgn/sgn_signed_data.h"
#include "sgn/sgn_texts.h"

namespace {

constexpr sgn_oid indirect_data("1.3.6.1.4.1.311.2.1.4");
constexpr sgn_oid second_version("1.3.6.1.4.1.311.12.1.3");  // of the members' list

// Of a list of the second version an identifier of these lengths is a digest.
std::string_view algorithm_of(std::size_t octets) noexcept {
  return octets == 20 ? "sha1" : octets == 32 ? "sha256" : std::string_view();
}

sgn_digest digest_of(const sgn_element& member, bool raw_identifiers) {
  constexpr std::size_t most_octets = 64;
  sgn_elements in(member.content);
  const auto identifier = in.next(sgn_tag_octet_string);
  const auto set = in.next(sgn_tag_set);
  sgn_elements attributes(set ? set->content : Bytes());
  std::string pieces;
  while (auto attribute = sgn_next_attribute(attributes)) {
    if (!(indirect_data == sgn_text(attribute->type))) continue;
    const auto value = attribute->values.next();
    const auto indirect = value ? sgn_open_indirect_data(value->whole) : std::nullopt;
    const Bytes digest = indirect ? sgn_octets(indirect->digest, pieces) : Bytes();
    if (digest.empty() || digest.size() > most_octets) continue;
    return {sgn_digest_name(indirect->algorithm), sgn_hex(digest)};
  }
  const Bytes raw = identifier && raw_identifiers ? sgn_octets(*identifier, pieces) : Bytes();
  const std::string_view algorithm = algorithm_of(raw.size());
  return algorithm.empty() ? sgn_digest() : sgn_digest{std::string(algorithm), sgn_hex(raw)};
}

}  // namespace

sgn_catalogue::sgn_catalogue(Bytes list) noexcept {
  sgn_elements in = sgn_inside(list, sgn_tag_sequence);
  (void)in.next(sgn_tag_integer);
  (void)in.next(sgn_tag_sequence);
  (void)in.next(sgn_tag_octet_string);
  (void)in.next(sgn_tag_integer);
  while (in.next(sgn_tag_utc_time) || in.next(sgn_tag_generalized_time)) {
  }
  raw_identifiers_ = second_version == sgn_text(sgn_next_algorithm(in));
  if (const auto subjects = in.next(sgn_tag_sequence)) {
    members_ = subjects->content;
  } else {
    damaged_ = !in.rest().empty() && !in.next(sgn_tag_context(0));
  }
}

std::uint64_t sgn_catalogue::count() const noexcept {
  std::uint64_t count = 0;
  sgn_elements in(members_);
  while (in.next(sgn_tag_sequence)) ++count;
  return count;
}

qerr_t sgn_catalogue::next(sgn_member_facts& member) noexcept {
  sgn_elements in(members_);
  const auto element = in.next(sgn_tag_sequence);
  if (!element) {
    damaged_ = damaged_ || !members_.empty();
    return QERR_END;
  }
  members_ = in.rest();
  return sgn_guarded([&] {
    member.digest = digest_of(*element, raw_identifiers_);
    return QERR_OK;
  });
}

bool sgn_catalogue::is_damaged() const noexcept { return damaged_; }
