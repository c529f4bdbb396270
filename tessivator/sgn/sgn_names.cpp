#include "sgn/sgn_names.h"

#include <algorithm>
#include <map>

#include "common/qlib/qlimits.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "sgn/sgn_utl.h"
#include "sgn/sgn_x509_store.h"

static constexpr std::uint32_t module_id = QLOG_SGN;
#undef QLOG_SOURCE
#define QLOG_SOURCE "sgn_pkcs7.cpp"

namespace {

// Issuer and serial number, which identify a certificate (RFC 2315, 6.7). They belong to a certificate or a signer.
struct identity {
  const X509_NAME* issuer;
  const ASN1_INTEGER* serial;
};

// Any total order is fine; equality is that of OpenSSL, which ignores case and white space in names.
struct identity_order {
  bool operator()(const identity& a, const identity& b) const noexcept {
    const int serials = ASN1_INTEGER_cmp(a.serial, b.serial);
    return serials != 0 ? serials < 0 : X509_NAME_cmp(a.issuer, b.issuer) < 0;
  }
};

using identity_index = std::map<identity, sgn_certificate*, identity_order>;

// The first certificate of each identity. An index, because a crafted structure may hold thousands of certificates and
// signers.
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

// One certificate: stem, list, file. `code` gets a naming error; when the list runs out of memory the work just ends.
// File errors are only logged.
next_step name_and_store(sgn_certificate& certificate, const sgn_source& source, const sgn_request& request,
                         sgn_name_list& names, qerr_t& code) {
  if (!names.has_room()) return next_step::stop;
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

}  // namespace

bool sgn_name_list::push(const sgn_certificate& certificate) noexcept {
  QmemPtr<qchar> name(qstr_dup(certificate.stem.data()));
  auto* const node = static_cast<sgn_cert_name*>(qmem_calloc(1, sizeof(sgn_cert_name)));
  if (!name || node == nullptr) {
    qmem_free(node);
    return false;
  }
  node->name = name.release();
  node->next = head_.release();
  std::copy(certificate.digest.begin(), certificate.digest.end(), node->sha256);
  head_.reset(node);
  ++count_;
  return true;
}

qerr_t sgn_process_p7(const sgn_p7& p7, const sgn_request& request, sgn_name_list& names) {
  return request.all_flag != 0 ? process_all(p7, request, names) : process_signers(p7, request, names);
}

bool sgn_name_list::has_room() noexcept {
  if (count_ == QLIMIT_NAMES_OF_A_FILE) cut_ = true;
  return !cut_;
}
