#include "sgn/sgn_signed_data.h"

namespace {

constexpr sgn_oid signed_data("1.2.840.113549.1.7.2");
constexpr sgn_oid signed_and_enveloped_data("1.2.840.113549.1.7.4");

constexpr std::size_t most_name = 8192;
constexpr std::size_t most_names = std::size_t{1} << 20;

std::shared_ptr<X509_NAME> decode_name(std::string_view name) {
  if (name.size() > most_name) return nullptr;
  const auto* data = reinterpret_cast<const unsigned char*>(name.data());
  return {d2i_X509_NAME(nullptr, &data, static_cast<long>(name.size())), X509_NAME_free};
}

}  // namespace

bool sgn_open_signed_data(Bytes signature, sgn_signed_parts& out) noexcept {
  sgn_elements in = sgn_inside(signature, sgn_tag_sequence);
  const auto type = in.next(sgn_tag_object);
  const auto wrapped = in.next(sgn_tag_context(0));
  if (!type || !wrapped) return false;
  const bool is_enveloped = signed_and_enveloped_data == sgn_text(type->content);
  if (!is_enveloped && !(signed_data == sgn_text(type->content))) return false;
  in = sgn_inside(wrapped->content, sgn_tag_sequence);
  if (!in.next(sgn_tag_integer) || (is_enveloped && !in.next(sgn_tag_set))) return false;
  const auto algorithms = in.next(sgn_tag_set);
  const auto content = in.next(sgn_tag_sequence);
  if (!algorithms || !content) return false;
  sgn_elements algorithm(algorithms->content);
  out.digest_algorithm = sgn_next_algorithm(algorithm);
  sgn_elements fields(content->content);
  if (const auto content_type = fields.next(sgn_tag_object)) out.content_type = content_type->content;
  if (const auto inner = fields.next(sgn_tag_context(0)); inner && !is_enveloped) {
    if (const auto element = sgn_elements(inner->content).next()) out.content = element->whole;
  }
  if (const auto set = in.next(sgn_tag_context(0))) out.certificates = set->content;
  (void)in.next(sgn_tag_context(1));
  const auto signers = in.next(sgn_tag_set);
  if (signers) out.signers = signers->content;
  return signers.has_value();
}

bool sgn_open_signer(Bytes signer, sgn_signer_parts& out) noexcept {
  sgn_elements in = sgn_inside(signer, sgn_tag_sequence);
  if (!in.next(sgn_tag_integer)) return false;
  const auto identity = in.next(sgn_tag_sequence);
  if (!identity) return false;
  sgn_elements names(identity->content);
  const auto issuer = names.next(sgn_tag_sequence);
  const auto serial = names.next(sgn_tag_integer);
  if (issuer) out.issuer = issuer->whole;
  if (serial) out.serial = serial->content;
  out.digest_algorithm = sgn_next_algorithm(in);
  if (const auto attributes = in.next(sgn_tag_context(0))) out.signed_attributes = attributes->content;
  out.key_algorithm = sgn_next_algorithm(in);
  if (!in.next(sgn_tag_octet_string)) return false;
  if (const auto attributes = in.next(sgn_tag_context(1))) out.unsigned_attributes = attributes->content;
  return issuer && serial && !out.digest_algorithm.empty();
}

std::optional<sgn_signer_attribute> sgn_next_attribute(sgn_elements& attributes) noexcept {
  const auto attribute = attributes.next(sgn_tag_sequence);
  if (!attribute) return std::nullopt;
  sgn_elements in(attribute->content);
  sgn_signer_attribute out;
  if (const auto type = in.next(sgn_tag_object)) out.type = type->content;
  if (const auto values = in.next(sgn_tag_set)) out.values = sgn_elements(values->content);
  return out;
}

Bytes sgn_next_algorithm(sgn_elements& in) noexcept {
  const auto algorithm = in.next(sgn_tag_sequence);
  if (!algorithm) return {};
  const auto object = sgn_elements(algorithm->content).next(sgn_tag_object);
  return object ? object->content : Bytes();
}

std::optional<sgn_indirect_parts> sgn_open_indirect_data(Bytes content) noexcept {
  sgn_elements in = sgn_inside(content, sgn_tag_sequence);
  if (!in.next(sgn_tag_sequence)) return std::nullopt;
  const auto info = in.next(sgn_tag_sequence);
  if (!info) return std::nullopt;
  sgn_elements fields(info->content);
  const Bytes algorithm = sgn_next_algorithm(fields);
  const auto digest = fields.next(sgn_tag_octet_string);
  if (algorithm.empty() || !digest) return std::nullopt;
  return sgn_indirect_parts{algorithm, *digest};
}

bool sgn_identity_index::decoded_order::operator()(const decoded& a, const decoded& b) const noexcept {
  return a.serial != b.serial ? a.serial < b.serial : X509_NAME_cmp(a.issuer.get(), b.issuer.get()) < 0;
}

void sgn_identity_index::add(Bytes certificate, std::size_t number) {
  const auto tbs = sgn_inside(certificate, sgn_tag_sequence).next(sgn_tag_sequence);
  if (!tbs) return;
  sgn_elements in(tbs->content);
  (void)in.next(sgn_tag_context(0));
  const auto serial = in.next(sgn_tag_integer);
  if (!serial || !in.next(sgn_tag_sequence)) return;
  const auto issuer = in.next(sgn_tag_sequence);
  if (issuer) encoded_.try_emplace({sgn_text(serial->content), sgn_text(issuer->whole)}, number);
}

std::optional<std::size_t> sgn_identity_index::find(Bytes issuer, Bytes serial) {
  if (const auto found = encoded_.find({sgn_text(serial), sgn_text(issuer)}); found != encoded_.end()) {
    return found->second;
  }
  const sgn_error_scope errors;
  if (!is_decoded_) {
    std::size_t size = 0;
    for (const auto& [identity, number] : encoded_) {
      size += identity.second.size();
      auto name = size <= most_names ? decode_name(identity.second) : nullptr;
      if (!name) continue;
      const auto [place, added] = decoded_.try_emplace({std::move(name), identity.first}, number);
      if (!added) place->second = std::min(place->second, number);
    }
    is_decoded_ = true;
  }
  const auto name = decode_name(sgn_text(issuer));
  const auto found = name ? decoded_.find({name, sgn_text(serial)}) : decoded_.end();
  return found == decoded_.end() ? std::nullopt : std::optional(found->second);
}
