// Reading one certificate file.
#include "utils/report/report_certificate.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <chrono>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_identity.h"
#include "utils/report/report_text.h"

namespace {

// No signature that a scan decodes is larger, and PEM takes a third more.
constexpr std::uint64_t max_file = std::uint64_t{24} << 20U;
// In characters.
constexpr std::size_t max_holder = 256;
constexpr std::size_t max_text = 1024;
constexpr std::string_view lifetime_signing = "1.3.6.1.4.1.311.10.3.13";

using BioPtr = std::unique_ptr<BIO, FreeWith<BIO_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<BN_free>>;
using UsagesPtr = std::unique_ptr<EXTENDED_KEY_USAGE, FreeWith<EXTENDED_KEY_USAGE_free>>;
using X509Ptr = std::unique_ptr<X509, FreeWith<X509_free>>;

struct OpensslFree {
  void operator()(void* memory) const noexcept { OPENSSL_free(memory); }
};
template <class T>
using OpensslPtr = std::unique_ptr<T, OpensslFree>;

std::string nameText(const X509_NAME* name) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  constexpr unsigned long form = (XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) | XN_FLAG_SEP_CPLUS_SPC;
  char* text = nullptr;
  if (!memory || X509_NAME_print_ex(memory.get(), name, 0, form & ~XN_FLAG_SEP_COMMA_PLUS) < 0) return {};
  const long size = BIO_get_mem_data(memory.get(), &text);
  return size > 0 ? presentable({text, static_cast<std::size_t>(size)}, max_text) : std::string();
}

std::string attribute(const X509_NAME* name, int nid) {
  const int at = X509_NAME_get_index_by_NID(name, nid, -1);
  if (at < 0) return {};
  unsigned char* bytes = nullptr;
  const int size = ASN1_STRING_to_UTF8(&bytes, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
  const OpensslPtr<unsigned char> owner(bytes);
  if (size <= 0) return {};
  return presentable({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)}, max_holder);
}

std::string holderOf(const X509_NAME* subject) {
  for (const int nid : {NID_commonName, NID_organizationName, NID_organizationalUnitName}) {
    if (std::string text = attribute(subject, nid); !text.empty()) return text;
  }
  const std::string whole = presentable(nameText(subject), max_holder);
  return whole.empty() ? "(no name)" : whole;
}

std::string serialText(const ASN1_INTEGER* serial) {
  const BignumPtr number(ASN1_INTEGER_to_BN(serial, nullptr));
  if (!number) return {};
  const OpensslPtr<char> text(BN_bn2hex(number.get()));
  return text ? text.get() : std::string();
}

std::string keyText(const X509* certificate) {
  const EVP_PKEY* const key = X509_get0_pubkey(certificate);
  if (key == nullptr) return "of an unknown kind";
  std::string text = OBJ_nid2ln(EVP_PKEY_get_base_id(key));
  if (text == "rsaEncryption") text = "RSA";
  if (text == "id-ecPublicKey") text = "EC";
  std::array<char, 64> group{};
  std::size_t length = 0;
  if (EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1) text.append(" ").append(group.data());
  return text + ' ' + std::to_string(EVP_PKEY_get_bits(key));
}

// 0 for a time that is none.
Seconds secondsOf(const ASN1_TIME* time) noexcept {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return 0;
  using namespace std::chrono;
  const sys_days day = year(parts.tm_year + 1900) / month(static_cast<unsigned>(parts.tm_mon + 1)) /
                       std::chrono::day(static_cast<unsigned>(parts.tm_mday));
  const auto timeOfDay = hours(parts.tm_hour) + minutes(parts.tm_min) + seconds(parts.tm_sec);
  return duration_cast<seconds>(day.time_since_epoch() + timeOfDay).count();
}

// A certificate may list any number of usages; these are shown, and all are looked at.
constexpr int max_usages = 32;

// Extended usages: what they are called, the subscriber's among them, and whether time stamps are the only one.
void readUsages(X509* certificate, CertificateFacts& facts, SignerParticulars& signer) {
  const UsagesPtr usages(
      static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
  const int count = usages ? sk_ASN1_OBJECT_num(usages.get()) : 0;
  for (int i = 0; i < count; ++i) {
    const ASN1_OBJECT* const usage = sk_ASN1_OBJECT_value(usages.get(), i);
    const int nid = OBJ_obj2nid(usage);
    if (count == 1) facts.isTimeStamping = nid == NID_time_stamp;
    std::array<char, 128> numbers{};
    const int length = OBJ_obj2txt(numbers.data(), numbers.size(), usage, 1);
    const bool whole = length > 0 && length < static_cast<int>(numbers.size());
    if (whole && numbers.data() == lifetime_signing) facts.isLifetime = true;
    if (whole && signer.subscriber.empty() && isSubscriberUsage(numbers.data())) signer.subscriber = numbers.data();
    if (i > max_usages) continue;
    if (i > 0) facts.usages += i == max_usages ? ", \u2026" : ", ";
    if (i < max_usages) facts.usages += nid == NID_undef ? numbers.data() : OBJ_nid2ln(nid);
  }
}

template <class Object>
std::string digestOf(int (*make)(const Object*, const EVP_MD*, unsigned char*, unsigned int*), const Object* object,
                     const EVP_MD* kind = EVP_sha256()) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (make(object, kind, digest.data(), &length) != 1) return {};
  return bytesToHex(std::span(digest).first(length));
}

void readFacts(X509* certificate, CertificateFacts& facts) {
  const X509_NAME* const subject = X509_get_subject_name(certificate);
  const X509_NAME* const issuer = X509_get_issuer_name(certificate);
  facts.holder = holderOf(subject);
  facts.subject = nameText(subject);
  facts.issuer = nameText(issuer);
  facts.serial = serialText(X509_get0_serialNumber(certificate));
  facts.key = keyText(certificate);
  facts.sha1 = digestOf(X509_digest, certificate, EVP_sha1());
  facts.sha256 = digestOf(X509_digest, certificate);
  facts.notBefore = secondsOf(X509_get0_notBefore(certificate));
  facts.notAfter = secondsOf(X509_get0_notAfter(certificate));
  facts.subjectId = digestOf(X509_NAME_digest, subject);
  facts.issuerId = digestOf(X509_NAME_digest, issuer);
  SignerParticulars signer;
  signer.organisation = attribute(subject, NID_organizationName);
  signer.commonName = attribute(subject, NID_commonName);
  signer.country = attribute(subject, NID_countryName);
  signer.registration = attribute(subject, NID_serialNumber);
  signer.keyDigest = digestOf(X509_pubkey_digest, certificate);
  signer.isSelfIssued = !facts.subjectId.empty() && facts.subjectId == facts.issuerId;
  readUsages(certificate, facts, signer);
  const SignerIdentity identity = identityOf(signer, facts.holder);
  facts.identity = identity.key;
  facts.label = identity.label;
}

// What a certificate that could not be read is called.
CertificateFacts nameProblem(CertificateFacts facts) {
  if (facts.problem.empty()) return facts;
  const std::string hex = bytesToHex(facts.name);
  facts.identity = hex.substr(0, 32);
  facts.label = facts.holder = "(certificate " + hex.substr(0, 12) + "\u2026: " + facts.problem + ')';
  return facts;
}

}  // namespace

std::string readCertificateFile(const std::u16string& path, std::string& bytes) {
  QfileOwner file;
  std::uint64_t size = 0;
  // Neither links nor pipes and devices: whoever can write into the folder could make us show any file of our user.
  const qerr_t code = qfile_open(file.out(), path.c_str(), QFILE_READ | QFILE_NO_FOLLOW);
  if (code == QERR_LINKS) return "its file is a link";
  if (code != QERR_OK) return qfile_exists(path.c_str()) ? "its file cannot be read" : "its file is missing";
  if (qfile_size(file.get(), &size) != QERR_OK) return "its file cannot be read";
  if (size > max_file) return "its file is too large";
  bytes.resize(static_cast<std::size_t>(size));
  std::size_t have = 0;
  std::uint32_t done = 0;
  do {
    const auto rest = static_cast<std::uint32_t>(bytes.size() - have);
    if (qfile_read(file.get(), bytes.data() + have, rest, &done) != QERR_OK) return "its file cannot be read";
    have += done;
  } while (done != 0 && have < bytes.size());
  bytes.resize(have);
  return {};
}

CertificateFacts readCertificate(const std::u16string& folder, const CertificateName& name) {
  CertificateFacts facts;
  facts.name = name;
  const std::string hex = bytesToHex(name);
  std::string bytes;
  facts.problem = readCertificateFile(qpath_join(folder, qstr_to_wide(hex) + u".cer"), bytes);
  if (facts.problem.empty()) {
    ERR_set_mark();
    const BioPtr memory(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    const X509Ptr certificate(memory ? PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr) : nullptr);
    if (certificate) {
      readFacts(certificate.get(), facts);
    } else {
      facts.problem = "its file holds no certificate";
    }
    ERR_pop_to_mark();
  }
  return nameProblem(std::move(facts));
}

CertificateFacts readCertificateDer(std::string_view der, const CertificateName& name) {
  CertificateFacts facts;
  facts.name = name;
  ERR_set_mark();
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  const X509Ptr certificate(der.size() > max_file ? nullptr : d2i_X509(nullptr, &at, static_cast<long>(der.size())));
  if (certificate) {
    readFacts(certificate.get(), facts);
  } else {
    facts.problem = "it cannot be decoded";
  }
  ERR_pop_to_mark();
  return nameProblem(std::move(facts));
}
