#include "utils/report/report_digest.h"

#include <array>
#include <new>
#include <span>

#include "common/qlib/qcksum.h"
#include "utils/report/report_text.h"

ReportDigest::ReportDigest() : context_(EVP_MD_CTX_new()) {
  if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
}

void ReportDigest::add(std::string_view bytes) {
  if (EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

std::string ReportDigest::text() {
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> bytes{};
  if (EVP_DigestFinal_ex(context_.get(), bytes.data(), nullptr) != 1) throw std::bad_alloc();
  return bytesToHex(std::span(bytes).first(QCKSUM_SHA256_BIN_LEN));
}
