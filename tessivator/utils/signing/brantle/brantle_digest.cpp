#include "utils/signing/brantle/brantle_digest.h"

#include <openssl/evp.h>

#include <array>
#include <new>

#include "details/details_text.h"

void BrantleDigest::Free::operator()(evp_md_ctx_st* context) const noexcept { EVP_MD_CTX_free(context); }

BrantleDigest::BrantleDigest() : context_(EVP_MD_CTX_new()) {
  if (!context_) throw std::bad_alloc();
  good_ = EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1;
}

void BrantleDigest::add(std::string_view bytes) noexcept {
  good_ = good_ && EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

std::string BrantleDigest::text() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
  unsigned length = 0;
  if (!good_ || EVP_DigestFinal_ex(context_.get(), value.data(), &length) != 1) return {};
  return details_hex(std::span(value).first(length));
}
