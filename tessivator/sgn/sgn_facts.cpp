#include "sgn/sgn_facts.h"

#include <algorithm>

#include "common/qlib/qder.h"
#include "sgn/sgn_name_text.h"
#include "sgn/sgn_outline.h"
#include "sgn/sgn_signed_data.h"
#include "sgn/sgn_texts.h"

namespace {

constexpr sgn_oid message_digest("1.2.840.113549.1.9.4");
constexpr sgn_oid signing_time("1.2.840.113549.1.9.5");
constexpr sgn_oid counter_signature("1.2.840.113549.1.9.6");
constexpr sgn_oid stamp_info("1.2.840.113549.1.9.16.1.4");
constexpr sgn_oid stamp_token("1.2.840.113549.1.9.16.2.14");
constexpr sgn_oid indirect_data("1.3.6.1.4.1.311.2.1.4");
constexpr sgn_oid publisher_info("1.3.6.1.4.1.311.2.1.12");
constexpr sgn_oid nested_signature("1.3.6.1.4.1.311.2.4.1");
constexpr sgn_oid authenticode_token("1.3.6.1.4.1.311.3.3.1");
constexpr sgn_oid trust_list("1.3.6.1.4.1.311.10.1");

// A certificate set with its index.
struct certificate_set {
  std::vector<sgn_certificate_place>& places;
  const certificate_set* outer = nullptr;  // asked when this one does not have a signer's certificate
  mutable sgn_identity_index index;

  [[nodiscard]] std::string find(const sgn_signer_parts& signer) const {
    for (const certificate_set* set = this; set != nullptr; set = set->outer) {
      if (const auto found = set->index.find(signer.issuer, signer.serial)) return set->places[*found].sha256;
    }
    return {};
  }
};

// What the signed attributes of a signer tell.
struct signed_values {
  sgn_element digest;
  std::string time;
  std::string program_name;
  std::string program_url;
};

// One signature, and those inside it.
class facts_reader {
 public:
  facts_reader(sgn_facts_budget& budget, sgn_facts& out, std::uint32_t depth) noexcept
      : budget_(budget), out_(out), depth_(depth) {}

  void read(Bytes signature) {
    const std::uint64_t size = qder_signature_size(signature, signature.size());
    if (size > QDER_MOST_SIGNATURE) return problem("signature_too_large");
    sgn_signed_parts parts;
    if (!sgn_open_signed_data(signature, parts)) return problem("undecodable");
    out_.content_type = sgn_dotted(parts.content_type);
    if (!parts.digest_algorithm.empty()) out_.digest_algorithm = sgn_digest_name(parts.digest_algorithm);
    read_content(parts);
    certificate_set certificates{out_.certificates, nullptr, {}};
    read_certificates(parts.certificates, certificates);
    read_signers(parts, certificates);
  }

 private:
  void problem(std::string_view code) { sgn_add_problem(out_.problems, code); }

  // Whether there is room for one more in a set of `count` and in the file.
  bool take_entry(std::size_t count, std::string_view excess) {
    if (count < sgn_most_of_a_set && budget_.entries != 0) {
      --budget_.entries;
      return true;
    }
    problem(excess);
    return false;
  }

  std::string take_text(std::string text) {
    if (text.size() > budget_.texts) {
      problem("texts_too_many");
      return {};
    }
    budget_.texts -= text.size();
    return text;
  }

  void read_content(const sgn_signed_parts& parts) {
    const std::string_view type = sgn_text(parts.content_type);
    if (trust_list == type) out_.list = parts.content;
    if (!(indirect_data == type)) return;
    const auto indirect = sgn_open_indirect_data(parts.content);
    if (!indirect) return problem("digest_unreadable");
    std::string pieces;
    out_.signed_digest = {sgn_digest_name(indirect->algorithm), digest_text(sgn_octets(indirect->digest, pieces))};
  }

  std::string digest_text(Bytes digest) {
    constexpr std::size_t most_octets = 64;
    if (digest.size() <= most_octets) return sgn_hex(digest);
    problem("digest_unreadable");
    return {};
  }

  void read_certificates(Bytes set, certificate_set& out) {
    sgn_elements in(set);
    while (const auto element = in.next()) {
      if (element->tag != sgn_tag_sequence) continue;  // an attribute certificate: real time stamps have them
      if (!take_entry(out.places.size(), "certificates_too_many")) return;
      out.index.add(element->whole, out.places.size());
      out.places.push_back({element->whole, sgn_sha256_hex(element->whole)});
    }
    if (!in.rest().empty()) problem("certificates_unreadable");
  }

  void read_signers(const sgn_signed_parts& parts, const certificate_set& certificates) {
    sgn_elements in(parts.signers);
    while (const auto element = in.next()) {
      if (!take_entry(out_.signers.size(), "signers_too_many")) return;
      sgn_signer_parts signer;
      if (!sgn_open_signer(element->whole, signer)) problem("signer_unreadable");
      signed_values values = read_signed(signer.signed_attributes);
      if (out_.signers.empty() && !(indirect_data == sgn_text(parts.content_type))) {
        std::string pieces;
        const Bytes digest = sgn_octets(values.digest, pieces);
        if (!digest.empty()) out_.signed_digest = {sgn_digest_name(signer.digest_algorithm), digest_text(digest)};
      }
      sgn_signer_facts& facts = out_.signers.emplace_back(signer_of(signer, certificates));
      if (out_.digest_algorithm.empty()) out_.digest_algorithm = facts.digest_algorithm;
      facts.program_name = std::move(values.program_name);
      facts.program_url = std::move(values.program_url);
      read_unsigned(signer.unsigned_attributes, certificates);
    }
    if (!in.rest().empty()) problem("signers_unreadable");
  }

  sgn_signer_facts signer_of(const sgn_signer_parts& signer, const certificate_set& certificates) {
    sgn_signer_facts out;
    if (!signer.issuer.empty() && !signer.serial.empty()) {
      out.certificate = certificates.find(signer);
      out.serial = sgn_integer_hex(signer.serial);
      std::string issuer = sgn_rfc4514(signer.issuer);
      constexpr std::size_t empty_name = 2;
      if (issuer.empty() && signer.issuer.size() > empty_name) problem("issuer_unreadable");
      out.issuer = take_text(std::move(issuer));
    }
    if (!signer.digest_algorithm.empty()) out.digest_algorithm = sgn_digest_name(signer.digest_algorithm);
    if (!signer.key_algorithm.empty()) out.key_algorithm = sgn_key_name(signer.key_algorithm);
    return out;
  }

  signed_values read_signed(Bytes attributes) {
    signed_values out;
    sgn_elements in(attributes);
    while (auto attribute = sgn_next_attribute(in)) {
      const auto value = attribute->values.next();
      const std::string_view type = sgn_text(attribute->type);
      if (!value) continue;
      if (message_digest == type && value->tag == sgn_tag_octet_string) out.digest = *value;
      if (signing_time == type) out.time = sgn_time(*value);
      if (publisher_info == type) read_publisher(*value, out);
    }
    return out;
  }

  // SpcSpOpusInfo ::= SEQUENCE { programName [0] EXPLICIT SpcString OPTIONAL, moreInfo [1] EXPLICIT SpcLink OPTIONAL }
  // SpcString     ::= CHOICE { unicode [0] BMPString, ascii [1] IA5String }
  // SpcLink       ::= CHOICE { url [0] IA5String, moniker [1], file [2] EXPLICIT SpcString }
  void read_publisher(const sgn_element& info, signed_values& out) {
    constexpr sgn_tag bmp_string{0, 30};
    constexpr sgn_tag ia5_string{0, 22};
    sgn_elements in(info.content);
    if (const auto name = in.next(sgn_tag_context(0))) {
      const auto text = sgn_elements(name->content).next();
      if (text) read_text(*text, text->tag == sgn_tag_context(0) ? bmp_string : ia5_string, out.program_name);
    }
    if (const auto link = in.next(sgn_tag_context(1))) {
      const auto url = sgn_elements(link->content).next(sgn_tag_context(0));
      if (url) read_text(*url, ia5_string, out.program_url);
    }
  }

  void read_text(sgn_element element, sgn_tag as, std::string& out) {
    element.tag = as;
    auto text = sgn_string(element, SGN_FACTS_MOST_TEXT);
    if (text) {
      out = take_text(std::move(*text));
    } else {
      problem("publisher_unreadable");
    }
  }

  void read_unsigned(Bytes attributes, const certificate_set& certificates) {
    sgn_elements in(attributes);
    while (auto attribute = sgn_next_attribute(in)) {
      const std::string_view type = sgn_text(attribute->type);
      const bool is_token = authenticode_token == type || stamp_token == type;
      while (const auto value = attribute->values.next()) {
        if (counter_signature == type) read_counter_signature(value->whole, certificates);
        if (is_token) read_token(value->whole, certificates);
        if (nested_signature == type) read_nested(value->whole);
      }
    }
  }

  void read_counter_signature(Bytes element, const certificate_set& certificates) {
    if (!take_entry(0, "stamps_too_many")) return;
    sgn_signer_parts signer;
    if (!sgn_open_signer(element, signer)) return problem("stamp_unreadable");
    sgn_stamp_facts& stamp = out_.stamps.emplace_back();
    stamp.signer = signer_of(signer, certificates);
    stamp.time = read_signed(signer.signed_attributes).time;
    if (stamp.time.empty()) problem("stamp_time_unreadable");
  }

  // TSTInfo ::= SEQUENCE { version, policy, messageImprint, serialNumber, genTime GeneralizedTime, ... }
  void read_token(Bytes element, const certificate_set& certificates) {
    if (!take_entry(0, "stamps_too_many")) return;
    sgn_signed_parts parts;
    const bool is_token = sgn_open_signed_data(element, parts) && stamp_info == sgn_text(parts.content_type);
    if (!is_token) return problem("stamp_unreadable");
    sgn_stamp_facts& stamp = out_.stamps.emplace_back();
    stamp.kind = sgn_stamp_kind::rfc3161;
    stamp.time = token_time(parts.content);
    if (stamp.time.empty()) problem("stamp_time_unreadable");
    certificate_set own{stamp.certificates, &certificates, {}};
    read_certificates(parts.certificates, own);
    const auto first = sgn_elements(parts.signers).next();
    sgn_signer_parts signer;
    if (!first || !sgn_open_signer(first->whole, signer)) problem("stamp_unreadable");
    stamp.signer = signer_of(signer, own);
  }

  static std::string token_time(Bytes content) {
    const auto string = sgn_elements(content).next(sgn_tag_octet_string);
    if (!string) return {};
    std::string pieces;
    sgn_elements in = sgn_inside(sgn_octets(*string, pieces), sgn_tag_sequence);
    const bool is_there =
        in.next(sgn_tag_integer) && in.next(sgn_tag_object) && in.next(sgn_tag_sequence) && in.next(sgn_tag_integer);
    const auto time = is_there ? in.next(sgn_tag_generalized_time) : std::nullopt;
    return time ? sgn_time(*time) : std::string();
  }

  void read_nested(Bytes signature) {
    if (depth_ == SGN_FACTS_MOST_DEPTH) return problem("nested_too_deep");
    if (budget_.signatures == 0) return problem("signatures_too_many");
    --budget_.signatures;
    facts_reader(budget_, out_.nested.emplace_back(), depth_ + 1).read(signature);
  }

  sgn_facts_budget& budget_;
  sgn_facts& out_;
  std::uint32_t depth_;
};

}  // namespace

void sgn_add_problem(std::vector<sgn_problem>& problems, std::string_view code) {
  const auto known = std::find_if(problems.begin(), problems.end(), [&](const auto& one) { return one.code == code; });
  if (known != problems.end()) {
    ++known->count;
  } else {
    problems.push_back({code, 1});
  }
}

qerr_t sgn_facts_read(Bytes signature, sgn_facts_budget& budget, sgn_facts& out) noexcept {
  return sgn_guarded([&] {
    out = {};
    if (budget.signatures == 0) {
      sgn_add_problem(out.problems, "signatures_too_many");
      return QERR_OK;
    }
    --budget.signatures;
    facts_reader(budget, out, 1).read(signature);
    return QERR_OK;
  });
}
