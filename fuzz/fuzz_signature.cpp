// Signature decoding, selection and naming over arbitrary bytes.
#include <algorithm>
#include <set>
#include <string>

#include "sgn/sgn_cache.h"
#include "sgn/sgn_pkcs7.h"
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
  if (p7 == nullptr) return;
  const Stems all = stems_of(p7, 1);
  const Stems signers = stems_of(p7, 0);
  check(stems_of(again, 1) == all && stems_of(again, 0) == signers);
  for (const auto& stem : all) check(stem.size() == 64 && stem.find_first_not_of(u"0123456789abcdef") == stem.npos);
  check(std::all_of(signers.begin(), signers.end(), [&](const auto& stem) { return all.contains(stem); }));
}
