// Digests of bytes that come in parts.
#include <openssl/err.h>

#include <new>

#include "common/qlib/qcksum.h"
#include "common/qlib/qcksum_digest.h"
#include "common/qlib/qerr.h"

namespace {

// In the order of qcksum_algorithm.
constexpr std::array<std::uint8_t, QCKSUM_ALGORITHM_COUNT> kinds_of_algorithms{QCKSUM_MD5, QCKSUM_SHA1, QCKSUM_SHA256,
                                                                               QCKSUM_SHA384, QCKSUM_SHA512};

}  // namespace

struct qcksum_parts::state {
  qcksum_loan loan;
  std::array<EVP_MD_CTX*, QCKSUM_ALGORITHM_COUNT> contexts{};  // of the digests that go on; the loan's
  bool failed = false;
};

qcksum_parts::qcksum_parts() noexcept = default;
qcksum_parts::~qcksum_parts() = default;

qerr_t qcksum_parts::begin(std::uint32_t kinds) noexcept {
  if (!state_) state_.reset(new (std::nothrow) state);
  if (!state_) return QERR_LOW_MEMORY;
  state_->contexts = {};
  state_->failed = false;
  for (std::size_t i = 0; i < QCKSUM_ALGORITHM_COUNT; ++i) {
    if ((kinds & kinds_of_algorithms[i]) == 0) continue;
    state_->contexts[i] = state_->loan.begin(static_cast<qcksum_algorithm>(i));
    if (state_->contexts[i] == nullptr) return QERR_LOW_MEMORY;
  }
  return QERR_OK;
}

void qcksum_parts::update(Bytes bytes) noexcept {
  if (!state_ || state_->failed) return;
  for (EVP_MD_CTX* const context : state_->contexts) {
    if (context != nullptr && EVP_DigestUpdate(context, bytes.data(), bytes.size()) != 1) state_->failed = true;
  }
  if (state_->failed) ERR_clear_error();
}

qerr_t qcksum_parts::finish(std::uint8_t kind, qcksum* record) noexcept {
  if (record == nullptr) return QERR_ARG2;
  for (std::size_t i = 0; state_ != nullptr && i < QCKSUM_ALGORITHM_COUNT; ++i) {
    EVP_MD_CTX* const context = state_->contexts[i];
    if (kinds_of_algorithms[i] != kind || context == nullptr) continue;
    state_->contexts[i] = nullptr;
    unsigned length = 0;
    if (state_->failed || EVP_DigestFinal_ex(context, record->value, &length) != 1) {
      ERR_clear_error();
      return QERR_LOW_MEMORY;
    }
    record->type = kind;
    record->length = static_cast<std::uint8_t>(length);
    return QERR_OK;
  }
  return QERR_NOT_FOUND;
}
