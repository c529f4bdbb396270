#include "sgn/sgn_pkcs7.h"

#include "common/qlib/qder.h"
#include "common/qlib/qlog.h"
#include "sgn/sgn_asn1.h"
#include "sgn/sgn_names.h"
#include "sgn/sgn_utl.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

#define DECRYPT_LOG(level, ...) QLOG_AS(level, "sgn_decrypt_certificate", __VA_ARGS__)

// Whether a structure may be decoded, by its bytes alone.
bool is_within_bounds(const sgn_outline& outline) noexcept {
  const std::size_t certificates = outline.certificates.count;
  const std::size_t signers = outline.signers.count;
  if (certificates > sgn_most_of_a_set || signers > sgn_most_of_a_set) {
    DECRYPT_LOG(QLOG_WARNING,
                u"Not decoded: a signature with %zu certificates and %zu signers; at most %zu are taken\n",
                certificates, signers, sgn_most_of_a_set);
    return false;
  }
  const std::size_t most_elements = sgn_most_elements(outline.bytes.size());
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
