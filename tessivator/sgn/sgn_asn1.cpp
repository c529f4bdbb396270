// PKCS#7 (RFC 2315) decoded by the ASN.1 decoder of OpenSSL, except for certificates and signers: these are only
// checked to be sequences and then decoded from the places in the outline. That saves most of the work: a certificate
// already seen in this request is not decoded again, and of a signer only issuer and serial number are decoded, not its
// attributes (they may nest whole signatures).
//
// ContentInfo ::= SEQUENCE { contentType OBJECT IDENTIFIER, content [0] EXPLICIT ANY DEFINED BY contentType OPTIONAL }
// SignedData  ::= SEQUENCE { version, digestAlgorithms, contentInfo, certificates [0] OPTIONAL, crls [1] OPTIONAL,
//                            signerInfos }
// SignedAndEnvelopedData ::= SEQUENCE { version, recipientInfos, digestAlgorithms, encryptedContentInfo,
//                                       certificates [0] OPTIONAL, crls [1] OPTIONAL, signerInfos }
#include "sgn/sgn_asn1.h"

#include <openssl/asn1t.h>
#include <openssl/crypto.h>
#include <openssl/objects.h>
#include <openssl/provider.h>

DEFINE_STACK_OF(ASN1_STRING)

// The template macros of OpenSSL require these names of fields and templates.
namespace sgn_templates {

struct signed_data {
  ASN1_INTEGER* version;
  STACK_OF(X509_ALGOR) * algorithms;
  PKCS7* contents;
  STACK_OF(ASN1_STRING) * certificates;
  STACK_OF(X509_CRL) * crls;
  STACK_OF(ASN1_STRING) * signers;
};

struct enveloped_data {
  ASN1_INTEGER* version;
  STACK_OF(PKCS7_RECIP_INFO) * recipients;
  STACK_OF(X509_ALGOR) * algorithms;
  PKCS7_ENC_CONTENT* contents;
  STACK_OF(ASN1_STRING) * certificates;
  STACK_OF(X509_CRL) * crls;
  STACK_OF(ASN1_STRING) * signers;
};

struct content_info {
  ASN1_OBJECT* type;
  union {
    signed_data* sign;
    enveloped_data* enveloped;
    ASN1_VALUE* other;  // any other content: checked and released by its template, never looked at
  } d;
};

// clang-format off
ASN1_SEQUENCE(signed_data) = {
  ASN1_SIMPLE(signed_data, version, ASN1_INTEGER),
  ASN1_SET_OF(signed_data, algorithms, X509_ALGOR),
  ASN1_SIMPLE(signed_data, contents, PKCS7),
  ASN1_IMP_SEQUENCE_OF_OPT(signed_data, certificates, ASN1_SEQUENCE, 0),
  ASN1_IMP_SET_OF_OPT(signed_data, crls, X509_CRL, 1),
  ASN1_SET_OF(signed_data, signers, ASN1_SEQUENCE)
} ASN1_SEQUENCE_END(signed_data)

ASN1_SEQUENCE(enveloped_data) = {
  ASN1_SIMPLE(enveloped_data, version, ASN1_INTEGER),
  ASN1_SET_OF(enveloped_data, recipients, PKCS7_RECIP_INFO),
  ASN1_SET_OF(enveloped_data, algorithms, X509_ALGOR),
  ASN1_SIMPLE(enveloped_data, contents, PKCS7_ENC_CONTENT),
  ASN1_IMP_SEQUENCE_OF_OPT(enveloped_data, certificates, ASN1_SEQUENCE, 0),
  ASN1_IMP_SET_OF_OPT(enveloped_data, crls, X509_CRL, 1),
  ASN1_SET_OF(enveloped_data, signers, ASN1_SEQUENCE)
} ASN1_SEQUENCE_END(enveloped_data)

ASN1_ADB_TEMPLATE(unknown) = ASN1_EXP_OPT(content_info, d.other, ASN1_ANY, 0);

ASN1_ADB(content_info) = {
  ADB_ENTRY(NID_pkcs7_data, ASN1_EXP_OPT(content_info, d.other, ASN1_OCTET_STRING, 0)),
  ADB_ENTRY(NID_pkcs7_signed, ASN1_EXP_OPT(content_info, d.sign, signed_data, 0)),
  ADB_ENTRY(NID_pkcs7_enveloped, ASN1_EXP_OPT(content_info, d.other, PKCS7_ENVELOPE, 0)),
  ADB_ENTRY(NID_pkcs7_signedAndEnveloped, ASN1_EXP_OPT(content_info, d.enveloped, enveloped_data, 0)),
  ADB_ENTRY(NID_pkcs7_digest, ASN1_EXP_OPT(content_info, d.other, PKCS7_DIGEST, 0)),
  ADB_ENTRY(NID_pkcs7_encrypted, ASN1_EXP_OPT(content_info, d.other, PKCS7_ENCRYPT, 0))
} ASN1_ADB_END(content_info, 0, type, nullptr, &unknown_tt, nullptr);

ASN1_SEQUENCE(content_info) = {
  ASN1_SIMPLE(content_info, type, ASN1_OBJECT),
  ASN1_ADB_OBJECT(content_info)
} ASN1_SEQUENCE_END(content_info)
// clang-format on

}  // namespace sgn_templates

namespace {

using sgn_templates::content_info;

struct content_free {
  void operator()(content_info* content) const noexcept {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(content), sgn_templates::content_info_it());
  }
};
using ContentOwner = std::unique_ptr<content_info, content_free>;
using SignerOwner = std::unique_ptr<PKCS7_SIGNER_INFO, FreeWith<PKCS7_SIGNER_INFO_free>>;

// A library context without algorithms. With any other, OpenSSL decodes the public key of each certificate: that costs
// more than everything else, is not needed here, and a crafted key could make it endless.
class lean_context {
 public:
  lean_context() noexcept : context_(OSSL_LIB_CTX_new()) {
    if (context_) provider_.reset(OSSL_PROVIDER_load(context_.get(), "null"));
  }
  [[nodiscard]] OSSL_LIB_CTX* get() const noexcept { return provider_ ? context_.get() : nullptr; }

 private:
  std::unique_ptr<OSSL_LIB_CTX, FreeWith<OSSL_LIB_CTX_free>> context_;
  std::unique_ptr<OSSL_PROVIDER, FreeWith<OSSL_PROVIDER_unload>> provider_;
};

OSSL_LIB_CTX* get_lean_context() {
  static const lean_context context;
  if (context.get() == nullptr) throw std::bad_alloc();
  return context.get();
}

template <class T>
T* decode_element(Bytes element, const ASN1_ITEM* item) {
  const auto* data = reinterpret_cast<const unsigned char*>(element.data());
  return reinterpret_cast<T*>(
      ASN1_item_d2i_ex(nullptr, &data, static_cast<long>(element.size()), item, get_lean_context(), nullptr));
}

// Frees the decoded sets at once: they are decoded from the bytes and would be held twice.
bool is_well_formed(Bytes structure) {
  const ContentOwner content(decode_element<content_info>(structure, sgn_templates::content_info_it()));
  return content != nullptr;
}

// Null when the element is not a certificate.
sgn_certificate_ptr certificate_of(Bytes element, sgn_store_cache* cache) {
  const std::string_view encoding(reinterpret_cast<const char*>(element.data()), element.size());
  if (cache != nullptr) {
    if (auto known = cache->find(encoding)) return known;
  }
  auto certificate = std::make_shared<sgn_certificate>();
  certificate->x509.reset(decode_element<X509>(element, ASN1_ITEM_rptr(X509)));
  if (!certificate->x509) return nullptr;
  // Without a digest there is no name, so nothing is written.
  (void)qcksum_buf_sha256(element.data(), element.size(), certificate->digest.data());
  if (cache != nullptr) cache->add(encoding, certificate);
  return certificate;
}

bool decode_certificates(const std::vector<Bytes>& elements, sgn_p7& p7, sgn_store_cache* cache) {
  for (const Bytes element : elements) {
    auto certificate = certificate_of(element, cache);
    if (!certificate) return false;
    p7.certificates.push_back(std::move(certificate));
  }
  return true;
}

bool decode_signers(const std::vector<Bytes>& elements, sgn_p7& p7) {
  for (const Bytes element : elements) {
    const SignerOwner signer(decode_element<PKCS7_SIGNER_INFO>(element, ASN1_ITEM_rptr(PKCS7_SIGNER_INFO)));
    if (!signer) return false;
    p7.signers.emplace_back(signer->issuer_and_serial);
    signer->issuer_and_serial = nullptr;
  }
  return true;
}

}  // namespace

bool sgn_asn1_decode(const sgn_outline& outline, sgn_p7& p7, sgn_store_cache* cache) {
  return is_well_formed(outline.bytes) && decode_certificates(outline.certificates.members, p7, cache) &&
         decode_signers(outline.signers.members, p7);
}

sgn_certificate_ptr sgn_decode_certificate(Bytes der) { return certificate_of(der, nullptr); }
