// Certificate    ::= SEQUENCE { tbsCertificate, signatureAlgorithm, signature }
// TBSCertificate ::= SEQUENCE { version [0] DEFAULT v1, serialNumber, signature, issuer, validity, subject,
//                               subjectPublicKeyInfo, issuerUniqueID [1] OPTIONAL, subjectUniqueID [2] OPTIONAL,
//                               extensions [3] OPTIONAL }
#include "sgn/sgn_cert_facts.h"

#include <bit>

#include "common/qlib/qcksum.h"
#include "sgn/sgn_asn1.h"
#include "sgn/sgn_name_text.h"
#include "sgn/sgn_signed_data.h"
#include "sgn/sgn_texts.h"
#include "sgn/sgn_x509_store.h"

namespace {

using digest_routine = qerr_t (*)(const void*, std::size_t, std::uint8_t*) noexcept;

// `length` is the digest's, in octets.
std::string digest_text(digest_routine digest, std::size_t length, Bytes bytes) {
  std::array<std::uint8_t, QCKSUM_SHA512_BIN_LEN> value{};
  if (digest(bytes.data(), bytes.size(), value.data()) != QERR_OK) throw std::bad_alloc();
  return sgn_hex(std::as_bytes(std::span(value).first(length)));
}

struct curve {
  sgn_oid object;
  std::string_view name;
  std::uint32_t bits;
};
constexpr curve curves[] = {{sgn_oid("1.2.840.10045.3.1.7"), "P-256", 256},
                            {sgn_oid("1.3.132.0.34"), "P-384", 384},
                            {sgn_oid("1.3.132.0.35"), "P-521", 521}};

class certificate_reader {
 public:
  explicit certificate_reader(sgn_cert_facts& out) noexcept : out_(out) {}

  void read(Bytes der) {
    out_.sha256 = sgn_sha256_hex(der);
    out_.sha1 = digest_text(qcksum_buf_sha1, QCKSUM_SHA1_BIN_LEN, der);
    sgn_elements outer = sgn_inside(der, sgn_tag_sequence);
    const auto tbs = outer.next(sgn_tag_sequence);
    if (!tbs) return problem("certificate_undecodable");
    out_.tbs_sha1 = digest_text(qcksum_buf_sha1, QCKSUM_SHA1_BIN_LEN, tbs->whole);
    out_.tbs_sha256 = sgn_sha256_hex(tbs->whole);
    out_.tbs_sha384 = digest_text(qcksum_buf_sha384, QCKSUM_SHA384_BIN_LEN, tbs->whole);
    const Bytes algorithm = sgn_next_algorithm(outer);
    if (!algorithm.empty()) out_.signature_algorithm = sgn_signature_name(algorithm);
    require(out_.signature_algorithm, "signature_algorithm_unreadable");
    read_fields(tbs->content);
    read_stem(der);
  }

 private:
  void problem(std::string_view code) { sgn_add_problem(out_.problems, code); }
  void require(const std::string& value, std::string_view code) {
    if (value.empty()) problem(code);
  }

  void read_fields(Bytes tbs) {
    sgn_elements in(tbs);
    (void)in.next(sgn_tag_context(0));
    const auto serial = in.next();
    (void)in.next();
    const auto issuer = in.next();
    const auto validity = in.next();
    const auto subject = in.next();
    const auto key = in.next();
    if (serial && serial->tag == sgn_tag_integer) out_.serial = sgn_integer_hex(serial->content);
    require(out_.serial, "serial_unreadable");
    if (issuer) out_.issuer = name_text(*issuer, "issuer_unreadable");
    if (subject) {
      out_.subject = name_text(*subject, "subject_unreadable");
      read_subject(subject->whole);
      out_.self_issued = sgn_text(subject->whole) == sgn_text(issuer->whole);
    }
    sgn_elements times(validity ? validity->content : Bytes());
    for (std::string* const text : {&out_.not_before, &out_.not_after}) {
      if (const auto time = times.next()) *text = sgn_time(*time);
      require(*text, "validity_unreadable");
    }
    if (key) read_key(key->content);
    require(out_.key_algorithm, "key_unreadable");
    while (const auto rest = in.next()) {
      if (rest->tag == sgn_tag_context(3)) read_extensions(rest->content);
    }
    if (!in.rest().empty()) problem("certificate_undecodable");
  }

  std::string name_text(const sgn_element& name, std::string_view code) {
    std::string text = sgn_rfc4514(name.whole);
    if (text.empty() && !(name.tag == sgn_tag_sequence && name.content.empty())) problem(code);
    return text;
  }

  void read_subject(Bytes subject) {
    static constexpr sgn_oid organization_identifier("2.5.4.97");
    const std::pair<sgn_oid, std::string*> wanted[] = {{sgn_oid("2.5.4.3"), &out_.common_name},
                                                       {sgn_oid("2.5.4.10"), &out_.organization},
                                                       {sgn_oid("2.5.4.6"), &out_.country},
                                                       {sgn_oid("2.5.4.5"), &out_.registration}};
    bool starts_set = false;
    std::string identifier;
    sgn_name_reader in(subject);
    while (const auto attribute = in.next(starts_set)) {
      const std::string_view type = sgn_text(attribute->type);
      const auto value = [&] { return sgn_string(attribute->value, SGN_FACTS_MOST_TEXT).value_or(std::string()); };
      for (const auto& [object, text] : wanted) {
        if (object == type) *text = value();
      }
      if (organization_identifier == type) identifier = value();
    }
    if (out_.registration.empty()) out_.registration = std::move(identifier);
  }

  // SubjectPublicKeyInfo ::= SEQUENCE { algorithm { OBJECT IDENTIFIER, parameters }, subjectPublicKey BIT STRING }
  void read_key(Bytes info) {
    sgn_elements in(info);
    const auto algorithm = in.next(sgn_tag_sequence);
    const auto key = in.next(sgn_tag_bit_string);
    sgn_elements fields(algorithm ? algorithm->content : Bytes());
    const auto object = fields.next(sgn_tag_object);
    if (!object) return;
    out_.key_algorithm = sgn_key_name(object->content);
    const auto parameters = fields.next();
    if (out_.key_algorithm == "ec" && parameters) return read_curve(*parameters);
    if (out_.key_algorithm == "ed25519") out_.key_bits = 256;
    if (out_.key_algorithm == "ed448") out_.key_bits = 456;
    if (out_.key_algorithm == "dsa" && parameters) out_.key_bits = bits_of_first(parameters->whole);
    const bool is_rsa = out_.key_algorithm == "rsa" || out_.key_algorithm == "rsa-pss";
    if (is_rsa && key && !key->content.empty()) out_.key_bits = bits_of_first(key->content.subspan(1));
  }

  void read_curve(const sgn_element& parameters) {
    if (parameters.tag == sgn_tag_sequence) out_.key_curve = "explicit";
    if (parameters.tag != sgn_tag_object) return;
    for (const curve& one : curves) {
      if (!(one.object == sgn_text(parameters.content))) continue;
      out_.key_curve = one.name;
      out_.key_bits = one.bits;
      return;
    }
    out_.key_curve = sgn_dotted(parameters.content);
  }

  // The bits of the first integer in a sequence.
  static std::uint32_t bits_of_first(Bytes sequence) noexcept {
    constexpr std::size_t most_octets = 65536;
    const auto number = sgn_inside(sequence, sgn_tag_sequence).next(sgn_tag_integer);
    if (!number || number->content.size() > most_octets) return 0;
    Bytes rest = number->content;
    while (!rest.empty() && rest.front() == std::byte{0}) rest = rest.subspan(1);
    if (rest.empty()) return 0;
    const auto width = static_cast<std::size_t>(std::bit_width(std::to_integer<unsigned>(rest.front())));
    return static_cast<std::uint32_t>((rest.size() - 1) * 8 + width);
  }

  // Extension ::= SEQUENCE { extnID OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
  void read_extensions(Bytes wrapped) {
    static constexpr sgn_oid basic_constraints("2.5.29.19");
    static constexpr sgn_oid extended_usage("2.5.29.37");
    sgn_elements in = sgn_inside(wrapped, sgn_tag_sequence);
    while (const auto extension = in.next()) {
      sgn_elements fields(extension->content);
      const auto object = fields.next(sgn_tag_object);
      (void)fields.next(sgn_tag_boolean);
      const auto value = fields.next(sgn_tag_octet_string);
      if (!object || !value) {
        problem("extension_unreadable");
        continue;
      }
      if (basic_constraints == sgn_text(object->content)) {
        const auto ca = sgn_inside(value->content, sgn_tag_sequence).next(sgn_tag_boolean);
        out_.ca = ca && !ca->content.empty() && ca->content.front() != std::byte{0};
      }
      if (extended_usage == sgn_text(object->content)) read_usages(value->content);
    }
  }

  void read_usages(Bytes value) {
    constexpr std::size_t most_usages = 256;
    sgn_elements in = sgn_inside(value, sgn_tag_sequence);
    while (const auto usage = in.next()) {
      std::string text = usage->tag == sgn_tag_object ? sgn_dotted(usage->content) : std::string();
      if (text.empty() || out_.extended_usages.size() == most_usages) {
        problem("usage_unreadable");
        continue;
      }
      out_.extended_usages.push_back(std::move(text));
    }
  }

  void read_stem(Bytes der) {
    const sgn_error_scope errors;
    sgn_outline outline;
    const bool is_decoded = sgn_outline_read(der, outline) && outline.elements <= sgn_most_elements(der.size());
    const sgn_certificate_ptr certificate = is_decoded ? sgn_decode_certificate(der) : nullptr;
    if (!certificate || sgn_name_certificate(*certificate) != QERR_OK) return problem("certificate_undecodable");
    for (const qchar unit : std::u16string_view(certificate->stem.data())) out_.stem += static_cast<char>(unit);
  }

  sgn_cert_facts& out_;
};

}  // namespace

qerr_t sgn_cert_facts_read(Bytes der, sgn_cert_facts& out) noexcept {
  return sgn_guarded([&] {
    out = {};
    certificate_reader(out).read(der);
    return QERR_OK;
  });
}
