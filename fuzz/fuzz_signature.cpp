// Signature decoding, selection and naming over arbitrary bytes. OpenSSL's own decoder must find what ours finds: no
// input of these sizes is beyond our bounds.
#include <algorithm>
#include <set>
#include <string>

#include "sgn/sgn_cache.h"
#include "sgn/sgn_pkcs7.h"
#include "sgn/sgn_types.h"
#include "sgn/sgn_x509.h"
#include "target.h"

namespace {

using Stems = std::multiset<std::u16string>;

// The stems of the signers or of all; the folder does not exist, so that nothing is written.
Stems stems_of(const SgnP7Owner& p7, std::uint32_t all) {
  sgn_cert_name* list = nullptr;
  Stems stems;
  const qerr_t code = sgn_process_p7_and_store_cert(p7.get(), u"no such folder/of fuzzing", &list, 0, all);
  check(code == 0 || list == nullptr);
  for (const sgn_cert_name* node = list; node != nullptr; node = node->next) stems.insert(node->name);
  sgn_cert_names_free(list);
  return stems;
}

void compare_with_openssl(Bytes input, const SgnP7Owner& ours, std::size_t named) {
  const std::unique_ptr<BIO, FreeWith<BIO_free>> in(BIO_new_mem_buf(input.data(), static_cast<int>(input.size())));
  const std::unique_ptr<PKCS7, FreeWith<PKCS7_free>> theirs(d2i_PKCS7_bio(in.get(), nullptr));
  ERR_clear_error();
  check((theirs == nullptr) == (ours == nullptr));
  if (theirs == nullptr) return;
  STACK_OF(X509)* certificates = nullptr;
  const STACK_OF(PKCS7_SIGNER_INFO)* signers = nullptr;
  const auto take = [&](const auto* content) {
    if (content == nullptr) return;
    certificates = content->cert;
    signers = content->signer_info;
  };
  if (PKCS7_type_is_signed(theirs.get())) take(theirs->d.sign);
  if (PKCS7_type_is_signedAndEnveloped(theirs.get())) take(theirs->d.signed_and_enveloped);
  int at = 0;
  for (const auto& one : ours->certificates) check(X509_cmp(sk_X509_value(certificates, at++), one->x509.get()) == 0);
  check(at == std::max(0, sk_X509_num(certificates)));
  check(static_cast<int>(ours->signers.size()) == std::max(0, sk_PKCS7_SIGNER_INFO_num(signers)));
  std::size_t found = 0;
  for (int i = 0; i < sk_PKCS7_SIGNER_INFO_num(signers); ++i) {
    const auto* const one = sk_PKCS7_SIGNER_INFO_value(signers, i)->issuer_and_serial;
    if (X509_find_by_issuer_and_serial(certificates, one->issuer, one->serial) != nullptr) ++found;
  }
  check(found == named);
}

}  // namespace

void fuzz(Bytes input) {
  static const SgnStoreCacheOwner cache(sgn_store_cache_create());
  sgn_p7* made[2] = {};
  const auto size = static_cast<std::uint32_t>(input.size());
  const qerr_t code = sgn_decrypt_certificate(input.data(), size, &made[0]);
  // What earlier inputs left in the cache changes nothing.
  check(sgn_decrypt_certificate_ex(input.data(), size, &made[1], cache.get()) == code);
  const SgnP7Owner p7(made[0]);
  const SgnP7Owner again(made[1]);
  check((p7 == nullptr) == (code != 0));
  const Stems signers = p7 == nullptr ? Stems() : stems_of(p7, 0);
  compare_with_openssl(input, p7, signers.size());
  if (p7 == nullptr) return;
  const Stems all = stems_of(p7, 1);
  check(stems_of(again, 1) == all && stems_of(again, 0) == signers);
  for (const auto& stem : all) check(stem.size() == 64 && stem.find_first_not_of(u"0123456789abcdef") == stem.npos);
  check(std::all_of(signers.begin(), signers.end(), [&](const auto& stem) { return all.contains(stem); }));
}
