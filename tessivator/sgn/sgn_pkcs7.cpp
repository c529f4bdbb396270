#include "sgn/sgn_pkcs7.h"

#include <climits>
#include <map>

#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_asn1.h"
#include "sgn/sgn_names.h"
#include "sgn/sgn_utl.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

// Issuer and serial number, which identify a certificate (RFC 2315, 6.7). Borrowed from a certificate or a signer.
struct Identity {
  const X509_NAME* issuer;
  const ASN1_INTEGER* serial;
};

// Any total order will do; equality is OpenSSL's, which folds case and white space of names.
struct IdentityOrder {
  bool operator()(const Identity& a, const Identity& b) const noexcept {
    const int serials = ASN1_INTEGER_cmp(a.serial, b.serial);
    return serials != 0 ? serials < 0 : X509_NAME_cmp(a.issuer, b.issuer) < 0;
  }
};

using IdentityIndex = std::map<Identity, sgn_certificate*, IdentityOrder>;

// The first certificate of each identity. An index rather than a search for each signer: a crafted structure may hold
// hundreds of thousands of both.
IdentityIndex index_certificates(const sgn_p7& p7) {
  IdentityIndex index;
  for (const SgnCertificatePtr& one : p7.certificates) {
    const X509* const x509 = one->x509.get();
    index.try_emplace({X509_get_issuer_name(x509), X509_get0_serialNumber(x509)}, one.get());
  }
  return index;
}

void log_extracted(const X509* certificate) noexcept {
  if (qlog_is_enabled(QLOG_DETAIL, module_id) == 0) return;
  const QmemPtr<qchar> subject(sgn_get_subject_alloc(certificate));
  const QmemPtr<qchar> issuer(sgn_get_issuer_alloc(certificate));
  QLOG_AS(QLOG_DETAIL, "sgn_process_p7_and_store_cert", u"Extracted cert. Subject: '%s'. Issuer: '%s'\n", subject.get(),
          issuer.get());
}

enum class next_step : std::uint8_t { go_on, stop };

// One certificate: stem, list, file. `code` takes a naming error; without memory for the list the work just ends, and
// what became of the file is the log's business.
next_step name_and_store(sgn_certificate& certificate, const sgn_request& request, SgnNameList& names, qerr_t& code) {
  code = sgn_name_certificate(certificate);
  if (code != QERR_OK || !names.push(certificate.stem.data())) return next_step::stop;
  (void)sgn_store_certificate(certificate, request.output_directory, request.cache);
  return next_step::go_on;
}

qerr_t process_all(const sgn_p7& p7, const sgn_request& request, SgnNameList& names) {
  qerr_t code = QERR_OK;
  for (const SgnCertificatePtr& one : p7.certificates) {
    if (name_and_store(*one, request, names, code) == next_step::stop) break;
  }
  return code;
}

qerr_t process_signers(const sgn_p7& p7, const sgn_request& request, SgnNameList& names) {
  qerr_t code = QERR_OK;
  const IdentityIndex index = index_certificates(p7);
  for (const IssuerSerialPtr& signer : p7.signers) {
    const auto found = index.find({signer->issuer, signer->serial});
    if (found == index.end()) continue;
    log_extracted(found->second->x509.get());
    if (name_and_store(*found->second, request, names, code) == next_step::stop) break;
  }
  return code;
}

#define DECRYPT_LOG(...) QLOG_AS(QLOG_ERROR, "sgn_decrypt_certificate", __VA_ARGS__)

qerr_t decode(const std::byte* buffer, std::uint32_t length, sgn_p7** out, sgn_store_cache* cache) {
  const SgnErrorScope errors;
  if (buffer == nullptr || length > INT_MAX) {  // more than OpenSSL takes
    DECRYPT_LOG(u"Failed to read PKCS7 object\n");
    return QERR_ALL_BITS;
  }
  const BioPtr in(BIO_new_mem_buf(buffer, static_cast<int>(length)));  // reads the caller's bytes where they are
  if (!in) {
    DECRYPT_LOG(u"Failed to set in BIO\n");
    return QERR_LOW_MEMORY;
  }
  auto p7 = std::make_unique<sgn_p7>();
  if (!sgn_asn1_decode(in.get(), *p7, cache)) {
    DECRYPT_LOG(u"Unable to load PKCS7 object\n");
    return QERR_ALL_BITS;
  }
  *out = p7.release();
  return QERR_OK;
}

}  // namespace

qerr_t sgn_process_p7(const sgn_p7& p7, const sgn_request& request, SgnNameList& names) {
  return request.all_flag != 0 ? process_all(p7, request, names) : process_signers(p7, request, names);
}

void sgn_p7_free(sgn_p7* p7) noexcept { delete p7; }

qerr_t sgn_decrypt_certificate_ex(const std::byte* buffer, std::uint32_t length, sgn_p7** out,
                                  sgn_store_cache* cache) noexcept {
  if (out == nullptr) return QERR_ARG3;
  QLOG(QLOG_DETAIL, u"Decrypting 0x%08x len[%d]\n", reinterpret_cast<std::uintptr_t>(buffer), length);
  return sgn_guarded([&] { return decode(buffer, length, out, cache); });
}

qerr_t sgn_decrypt_certificate(const std::byte* buffer, std::uint32_t length, sgn_p7** out) noexcept {
  return sgn_decrypt_certificate_ex(buffer, length, out, nullptr);
}

qerr_t sgn_process_p7_and_store_cert_ex(sgn_p7* p7, const qchar* output_directory, sgn_cert_name** out_names,
                                        std::uint32_t /*database_flag*/, std::uint32_t all_flag,
                                        sgn_store_cache* cache) noexcept {
  if (p7 == nullptr) return QERR_ARG1;
  if (out_names == nullptr) return QERR_ARG3;
  *out_names = nullptr;
  return sgn_guarded([&] {
    SgnNameList names;
    const qerr_t code = sgn_process_p7(*p7, {output_directory, all_flag, cache}, names);
    if (code == QERR_OK) *out_names = names.release();
    return code;
  });
}

qerr_t sgn_process_p7_and_store_cert(sgn_p7* p7, const qchar* output_directory, sgn_cert_name** out_names,
                                     std::uint32_t database_flag, std::uint32_t all_flag) noexcept {
  return sgn_process_p7_and_store_cert_ex(p7, output_directory, out_names, database_flag, all_flag, nullptr);
}
