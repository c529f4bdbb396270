// PKCS#7 (RFC 2315) as OpenSSL's ASN.1 decoder reads it, except that certificates and signers are first taken as they
// are encoded. That saves most of the work: a certificate that this request has met is not decoded again, and of a
// signer only issuer and serial number are kept, whatever its attributes hold (they may nest whole signatures).
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

// The names of fields and templates are what OpenSSL's template macros ask for.
namespace sgn_templates {

struct SIGNED {
  ASN1_INTEGER* version;
  STACK_OF(X509_ALGOR) * algorithms;
  PKCS7* contents;
  STACK_OF(ASN1_STRING) * certificates;
  STACK_OF(X509_CRL) * crls;
  STACK_OF(ASN1_STRING) * signers;
};

struct ENVELOPED {
  ASN1_INTEGER* version;
  STACK_OF(PKCS7_RECIP_INFO) * recipients;
  STACK_OF(X509_ALGOR) * algorithms;
  PKCS7_ENC_CONTENT* contents;
  STACK_OF(ASN1_STRING) * certificates;
  STACK_OF(X509_CRL) * crls;
  STACK_OF(ASN1_STRING) * signers;
};

struct CONTENT {
  ASN1_OBJECT* type;
  union {
    SIGNED* sign;
    ENVELOPED* enveloped;
    ASN1_VALUE* other;  // any other content: checked and released by its template, never looked at
  } d;
};

// clang-format off
ASN1_SEQUENCE(SIGNED) = {
  ASN1_SIMPLE(SIGNED, version, ASN1_INTEGER),
  ASN1_SET_OF(SIGNED, algorithms, X509_ALGOR),
  ASN1_SIMPLE(SIGNED, contents, PKCS7),
  ASN1_IMP_SEQUENCE_OF_OPT(SIGNED, certificates, ASN1_SEQUENCE, 0),
  ASN1_IMP_SET_OF_OPT(SIGNED, crls, X509_CRL, 1),
  ASN1_SET_OF(SIGNED, signers, ASN1_SEQUENCE)
} ASN1_SEQUENCE_END(SIGNED)

ASN1_SEQUENCE(ENVELOPED) = {
  ASN1_SIMPLE(ENVELOPED, version, ASN1_INTEGER),
  ASN1_SET_OF(ENVELOPED, recipients, PKCS7_RECIP_INFO),
  ASN1_SET_OF(ENVELOPED, algorithms, X509_ALGOR),
  ASN1_SIMPLE(ENVELOPED, contents, PKCS7_ENC_CONTENT),
  ASN1_IMP_SEQUENCE_OF_OPT(ENVELOPED, certificates, ASN1_SEQUENCE, 0),
  ASN1_IMP_SET_OF_OPT(ENVELOPED, crls, X509_CRL, 1),
  ASN1_SET_OF(ENVELOPED, signers, ASN1_SEQUENCE)
} ASN1_SEQUENCE_END(ENVELOPED)

ASN1_ADB_TEMPLATE(unknown) = ASN1_EXP_OPT(CONTENT, d.other, ASN1_ANY, 0);

ASN1_ADB(CONTENT) = {
  ADB_ENTRY(NID_pkcs7_data, ASN1_EXP_OPT(CONTENT, d.other, ASN1_OCTET_STRING, 0)),
  ADB_ENTRY(NID_pkcs7_signed, ASN1_EXP_OPT(CONTENT, d.sign, SIGNED, 0)),
  ADB_ENTRY(NID_pkcs7_enveloped, ASN1_EXP_OPT(CONTENT, d.other, PKCS7_ENVELOPE, 0)),
  ADB_ENTRY(NID_pkcs7_signedAndEnveloped, ASN1_EXP_OPT(CONTENT, d.enveloped, ENVELOPED, 0)),
  ADB_ENTRY(NID_pkcs7_digest, ASN1_EXP_OPT(CONTENT, d.other, PKCS7_DIGEST, 0)),
  ADB_ENTRY(NID_pkcs7_encrypted, ASN1_EXP_OPT(CONTENT, d.other, PKCS7_ENCRYPT, 0))
} ASN1_ADB_END(CONTENT, 0, type, nullptr, &unknown_tt, nullptr);

ASN1_SEQUENCE(CONTENT) = {
  ASN1_SIMPLE(CONTENT, type, ASN1_OBJECT),
  ASN1_ADB_OBJECT(CONTENT)
} ASN1_SEQUENCE_END(CONTENT)
// clang-format on

}  // namespace sgn_templates

namespace {

using sgn_templates::CONTENT;

struct ContentFree {
  void operator()(CONTENT* content) const noexcept {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(content), sgn_templates::CONTENT_it());
  }
};
using ContentPtr = std::unique_ptr<CONTENT, ContentFree>;
using SignerPtr = std::unique_ptr<PKCS7_SIGNER_INFO, FreeWith<PKCS7_SIGNER_INFO_free>>;

// A context without algorithms. In any other OpenSSL decodes the public key with each certificate: that costs more than
// all the rest, nothing here uses it, and a crafted key could make it endless.
class LeanContext {
 public:
  LeanContext() noexcept : context_(OSSL_LIB_CTX_new()) {
    if (context_) provider_.reset(OSSL_PROVIDER_load(context_.get(), "null"));
  }
  [[nodiscard]] OSSL_LIB_CTX* get() const noexcept { return provider_ ? context_.get() : nullptr; }

 private:
  std::unique_ptr<OSSL_LIB_CTX, FreeWith<OSSL_LIB_CTX_free>> context_;
  std::unique_ptr<OSSL_PROVIDER, FreeWith<OSSL_PROVIDER_unload>> provider_;
};

OSSL_LIB_CTX* lean_context() {
  static const LeanContext context;
  if (context.get() == nullptr) throw std::bad_alloc();
  return context.get();
}

template <class T>
T* decode_element(const ASN1_STRING* element, const ASN1_ITEM* item) {
  const unsigned char* data = ASN1_STRING_get0_data(element);
  return reinterpret_cast<T*>(
      ASN1_item_d2i_ex(nullptr, &data, ASN1_STRING_length(element), item, lean_context(), nullptr));
}

std::string_view encoding_of(const ASN1_STRING* element) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(element)),
          static_cast<std::size_t>(ASN1_STRING_length(element))};
}

// Null when the element is no certificate.
SgnCertificatePtr certificate_of(const ASN1_STRING* element, sgn_store_cache* cache) {
  if (cache != nullptr) {
    if (auto known = cache->find(encoding_of(element))) return known;
  }
  auto certificate = std::make_shared<sgn_certificate>();
  certificate->x509.reset(decode_element<X509>(element, ASN1_ITEM_rptr(X509)));
  if (!certificate->x509) return nullptr;
  if (cache != nullptr) cache->add(encoding_of(element), certificate);
  return certificate;
}

bool decode_certificates(const STACK_OF(ASN1_STRING) * elements, sgn_p7& p7, sgn_store_cache* cache) {
  const int count = sk_ASN1_STRING_num(elements);  // -1 without a set
  for (int i = 0; i < count; ++i) {
    auto certificate = certificate_of(sk_ASN1_STRING_value(elements, i), cache);
    if (!certificate) return false;
    p7.certificates.push_back(std::move(certificate));
  }
  return true;
}

bool decode_signers(const STACK_OF(ASN1_STRING) * elements, sgn_p7& p7) {
  const int count = sk_ASN1_STRING_num(elements);
  for (int i = 0; i < count; ++i) {
    const SignerPtr signer(
        decode_element<PKCS7_SIGNER_INFO>(sk_ASN1_STRING_value(elements, i), ASN1_ITEM_rptr(PKCS7_SIGNER_INFO)));
    if (!signer) return false;
    p7.signers.emplace_back(signer->issuer_and_serial);
    signer->issuer_and_serial = nullptr;
  }
  return true;
}

template <class Content>
bool decode_sets(const Content* content, sgn_p7& p7, sgn_store_cache* cache) {
  if (content == nullptr) return true;  // the content is optional
  return decode_certificates(content->certificates, p7, cache) && decode_signers(content->signers, p7);
}

}  // namespace

bool sgn_asn1_decode(BIO* in, sgn_p7& p7, sgn_store_cache* cache) {
  const ContentPtr content(
      static_cast<CONTENT*>(ASN1_item_d2i_bio_ex(sgn_templates::CONTENT_it(), in, nullptr, lean_context(), nullptr)));
  if (!content) return false;
  switch (OBJ_obj2nid(content->type)) {
    case NID_pkcs7_signed:
      return decode_sets(content->d.sign, p7, cache);
    case NID_pkcs7_signedAndEnveloped:
      return decode_sets(content->d.enveloped, p7, cache);
    default:
      return true;
  }
}
