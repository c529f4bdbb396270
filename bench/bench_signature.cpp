// What one signature costs: a plain decode as OpenSSL does it by default, the same without algorithms, and ours, whole
// and with the cache of a request. Set TESSIVATOR_FIXTURES to the fixtures' folder.
#include <benchmark/benchmark.h>
#include <openssl/provider.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "sgn/sgn_cache.h"
#include "sgn/sgn_ossl.h"
#include "sgn/sgn_pkcs7.h"
#include "sgn/sgn_x509.h"

namespace {

std::string signature() {
  const char* const folder = std::getenv("TESSIVATOR_FIXTURES");
  std::ifstream in(std::string(folder == nullptr ? "." : folder) + "/pkcs7/signed_rsa_chain.der", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void openssl_item(benchmark::State& state, OSSL_LIB_CTX* context) {
  const std::string bytes = signature();
  while (state.KeepRunning()) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    auto* const p7 = reinterpret_cast<PKCS7*>(
        ASN1_item_d2i_ex(nullptr, &data, static_cast<long>(bytes.size()), ASN1_ITEM_rptr(PKCS7), context, nullptr));
    if (p7 == nullptr) state.SkipWithError("no signature");
    PKCS7_free(p7);
  }
}

void openssl_default(benchmark::State& state) { openssl_item(state, nullptr); }
BENCHMARK(openssl_default);

void openssl_null_provider(benchmark::State& state) {
  OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
  OSSL_PROVIDER* const provider = OSSL_PROVIDER_load(context, "null");
  openssl_item(state, context);
  OSSL_PROVIDER_unload(provider);
  OSSL_LIB_CTX_free(context);
}
BENCHMARK(openssl_null_provider);

// Decoding alone, or with the choice, naming and writing of the signer's certificate.
void sgn_work(benchmark::State& state, bool with_cache, bool with_files) {
  const std::string bytes = signature();
  const SgnStoreCacheOwner cache(with_cache ? sgn_store_cache_create() : nullptr);
  while (state.KeepRunning()) {
    sgn_p7* p7 = nullptr;
    sgn_cert_name* names = nullptr;
    const auto* const data = reinterpret_cast<const std::byte*>(bytes.data());
    qerr_t code = sgn_decrypt_certificate_ex(data, static_cast<std::uint32_t>(bytes.size()), &p7, cache.get());
    if (code == QERR_OK && with_files) code = sgn_process_p7_and_store_cert_ex(p7, u".", &names, 0, 0, cache.get());
    if (code != QERR_OK) state.SkipWithError("no signature");
    sgn_cert_names_free(names);
    sgn_p7_free(p7);
  }
}
BENCHMARK_CAPTURE(sgn_work, decode, false, false);
BENCHMARK_CAPTURE(sgn_work, decode_cached, true, false);
BENCHMARK_CAPTURE(sgn_work, decode_and_store, false, true);
BENCHMARK_CAPTURE(sgn_work, decode_and_store_cached, true, true);

}  // namespace

BENCHMARK_MAIN();
