#include "sgn/sgn_pkcs7.h"

#include <map>

#include "common/qlib/qder.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_asn1.h"
#include "sgn/sgn_names.h"
#include "sgn/sgn_utl.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

// Issuer and serial number, which identify a certificate (RFC 2315, 6.7). Borrowed from a certificate or a signer.
struct identity {
  const X509_NAME* issuer;
  const ASN1_INTEGER* serial;
};

// Any total order will do; equality is OpenSSL's, which folds case and white space of names.
struct identity_order {
  bool operator()(const identity& a, const identity& b) const noexcept {
    const int serials = ASN1_INTEGER_cmp(a.serial, b.serial);
    return serials != 0 ? serials < 0 : X509_NAME_cmp(a.issuer, b.issuer) < 0;
  }
};

using identity_index = std::map<identity, sgn_certificate*, identity_order>;

// The first certificate of each identity. An index rather than a search for each signer: a crafted structure may hold
// thousands of both.
identity_index index_certificates(const sgn_p7& p7) {
  identity_index index;
  for (const sgn_certificate_ptr& one : p7.certificates) {
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
next_step name_and_store(sgn_certificate& certificate, const sgn_source& source, const sgn_request& request,
                         sgn_name_list& names, qerr_t& code) {
  code = sgn_name_certificate(certificate);
  if (code != QERR_OK || !names.push(certificate)) return next_step::stop;
  (void)sgn_store_certificate(certificate, source, request.output_directory, request.cache);
  return next_step::go_on;
}

qerr_t process_all(const sgn_p7& p7, const sgn_request& request, sgn_name_list& names) {
  qerr_t code = QERR_OK;
  for (const sgn_certificate_ptr& one : p7.certificates) {
    if (name_and_store(*one, p7.source, request, names, code) == next_step::stop) break;
  }
  return code;
}

qerr_t process_signers(const sgn_p7& p7, const sgn_request& request, sgn_name_list& names) {
  qerr_t code = QERR_OK;
  const identity_index index = index_certificates(p7);
  for (const SgnIssuerSerialOwner& signer : p7.signers) {
    const auto found = index.find({signer->issuer, signer->serial});
    if (found == index.end()) continue;
    log_extracted(found->second->x509.get());
    if (name_and_store(*found->second, p7.source, request, names, code) == next_step::stop) break;
  }
  return code;
}

#define DECRYPT_LOG(level, ...) QLOG_AS(level, "sgn_decrypt_certificate", __VA_ARGS__)

// Whether a structure may be decoded, by its bytes alone. OpenSSL takes some hundred bytes for an element that may have
// two; those of real structures have twenty and more on average.
bool is_within_bounds(const sgn_outline& outline) noexcept {
  constexpr std::size_t free_elements = std::size_t{1} << 17;
  constexpr std::size_t bytes_an_element = 16;
  const std::size_t certificates = outline.certificates.count;
  const std::size_t signers = outline.signers.count;
  if (certificates > sgn_most_of_a_set || signers > sgn_most_of_a_set) {
    DECRYPT_LOG(QLOG_WARNING,
                u"Not decoded: a signature with %zu certificates and %zu signers; at most %zu are taken\n",
                certificates, signers, sgn_most_of_a_set);
    return false;
  }
  const std::size_t most_elements = free_elements + outline.bytes.size() / bytes_an_element;
  if (outline.elements > most_elements) {
    DECRYPT_LOG(QLOG_WARNING, u"Not decoded: a signature with %zu elements in %zu bytes; at most %zu are taken\n",
                outline.elements, outline.bytes.size(), most_elements);
    return false;
  }
  return true;
}

qerr_t decode(Bytes signature, sgn_p7** out, sgn_store_cache* cache) {
  const sgn_error_scope errors;
  const bool missing = signature.data() == nullptr;  // its reader may have left it out for its length
  const std::uint64_t size = qder_signature_size(missing ? Bytes() : signature, signature.size());
  if (size > QDER_MOST_SIGNATURE) {
    DECRYPT_LOG(QLOG_WARNING, u"Not decoded: a signature of %llu bytes; at most %llu are taken\n", size,
                QDER_MOST_SIGNATURE);
    return QERR_ALL_BITS;
  }
  if (missing) {
    DECRYPT_LOG(QLOG_ERROR, u"Failed to read PKCS7 object\n");
    return QERR_ALL_BITS;
  }
  sgn_outline outline;
  auto p7 = std::make_unique<sgn_p7>();
  const bool complete = sgn_outline_read(signature, outline);
  if (complete && !is_within_bounds(outline)) return QERR_ALL_BITS;
  if (!complete || !sgn_asn1_decode(outline, *p7, cache)) {
    DECRYPT_LOG(QLOG_ERROR, u"Unable to load PKCS7 object\n");
    return QERR_ALL_BITS;
  }
  *out = p7.release();
  return QERR_OK;
}

}  // namespace

qerr_t sgn_process_p7(const sgn_p7& p7, const sgn_request& request, sgn_name_list& names) {
  return request.all_flag != 0 ? process_all(p7, request, names) : process_signers(p7, request, names);
}

void sgn_p7_free(sgn_p7* p7) noexcept { delete p7; }

qerr_t sgn_decrypt_certificate_ex(const std::byte* buffer, std::uint32_t length, sgn_p7** out,
                                  sgn_store_cache* cache) noexcept {
  if (out == nullptr) return QERR_ARG3;
  QLOG(QLOG_DETAIL, u"Decrypting 0x%08x len[%d]\n", reinterpret_cast<std::uintptr_t>(buffer), length);
  return sgn_guarded([&] { return decode({buffer, length}, out, cache); });
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
    sgn_name_list names;
    const qerr_t code = sgn_process_p7(*p7, {output_directory, all_flag, cache}, names);
    *out_names = names.release();
    return code;
  });
}

qerr_t sgn_process_p7_and_store_cert(sgn_p7* p7, const qchar* output_directory, sgn_cert_name** out_names,
                                     std::uint32_t database_flag, std::uint32_t all_flag) noexcept {
  return sgn_process_p7_and_store_cert_ex(p7, output_directory, out_names, database_flag, all_flag, nullptr);
}
