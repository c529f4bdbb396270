// Signature decoding, selection and naming over arbitrary bytes.
#include <cstdlib>
#include <set>
#include <string>

#include "budget.h"
#include "sgn/sgn_cache.h"
#include "sgn/sgn_pkcs7.h"
#include "sgn/sgn_x509.h"

namespace {

// The stems of the signers or of all; the folder does not exist, so that nothing is written.
std::multiset<std::u16string> stems_of(sgn_p7* p7, std::uint32_t all) {
  sgn_cert_name* list = nullptr;
  std::multiset<std::u16string> stems;
  if (sgn_process_p7_and_store_cert(p7, u"no such folder/of fuzzing", &list, 0, all) != 0 && list != nullptr) abort();
  for (const sgn_cert_name* node = list; node != nullptr; node = node->next) stems.insert(node->name);
  sgn_cert_names_free(list);
  return stems;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const budget spent(size);
  static const SgnStoreCacheOwner cache(sgn_store_cache_create());
  sgn_p7* p7s[2] = {};
  const auto* const bytes = reinterpret_cast<const std::byte*>(data);
  const qerr_t code = sgn_decrypt_certificate(bytes, static_cast<std::uint32_t>(size), &p7s[0]);
  // What earlier inputs left in the cache changes nothing.
  if (sgn_decrypt_certificate_ex(bytes, static_cast<std::uint32_t>(size), &p7s[1], cache.get()) != code) abort();
  if (code != 0) return p7s[0] == nullptr ? 0 : (abort(), 0);
  const auto all = stems_of(p7s[0], 1);
  const auto signers = stems_of(p7s[0], 0);
  if (stems_of(p7s[1], 1) != all || stems_of(p7s[1], 0) != signers) abort();
  for (const auto& stem : all) {
    if (stem.size() != 64 || stem.find_first_not_of(u"0123456789abcdef") != stem.npos) abort();
  }
  for (const auto& stem : signers) all.contains(stem) ? void() : abort();
  for (sgn_p7* const p7 : p7s) sgn_p7_free(p7);
  return 0;
}
