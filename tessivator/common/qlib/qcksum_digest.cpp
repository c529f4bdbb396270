#include "common/qlib/qcksum_digest.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <mutex>
#include <new>

namespace {

constexpr std::array<const char*, QCKSUM_ALGORITHM_COUNT> algorithm_names{"MD5", "SHA1", "SHA2-256", "SHA2-384",
                                                                          "SHA2-512"};
// The number of idle workspaces to keep: about as many as scans run at a time.
constexpr std::size_t idle_workspaces = 8;

using LibCtxPtr = std::unique_ptr<OSSL_LIB_CTX, FreeWith<OSSL_LIB_CTX_free>>;
using EvpMdPtr = std::unique_ptr<EVP_MD, FreeWith<EVP_MD_free>>;

std::mutex service_lock;

}  // namespace

// Our own library context with the built-in default provider of OpenSSL and no configuration file: the settings of the
// host (a FIPS-only configuration has no MD5) cannot change our digests, and we change nothing in the context of the
// host. The order of the members releases the context last.
struct qcksum_service {
  LibCtxPtr library;
  std::array<EvpMdPtr, QCKSUM_ALGORITHM_COUNT> algorithms;
  std::array<std::unique_ptr<qcksum_workspace>, idle_workspaces> idle;
  std::size_t references = 0;  // guarded by service_lock, like `idle`
  bool retired = false;        // shut down; the last reference releases it
};

namespace {

// Guarded by service_lock; a plain pointer for the reason given at the cache of qerr.cpp.
qcksum_service* current = nullptr;

std::unique_ptr<qcksum_service> make_service() noexcept {
  std::unique_ptr<qcksum_service> service(new (std::nothrow) qcksum_service);
  if (!service) return nullptr;
  service->library.reset(OSSL_LIB_CTX_new());
  if (!service->library) return nullptr;
  for (std::size_t i = 0; i < QCKSUM_ALGORITHM_COUNT; ++i) {
    service->algorithms[i].reset(EVP_MD_fetch(service->library.get(), algorithm_names[i], nullptr));
    if (!service->algorithms[i]) {
      ERR_clear_error();
      return nullptr;
    }
  }
  return service;
}

}  // namespace

void qcksum_lib_fini() noexcept {
  const std::lock_guard lock(service_lock);
  if (current == nullptr) return;
  // At process exit the exit handler of OpenSSL has run before us: do not touch its objects any more.
  if (OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) != 1) return;
  current->retired = true;
  const std::unique_ptr<qcksum_service> released(current->references == 0 ? current : nullptr);
  current = nullptr;
}

qcksum_service_ref::qcksum_service_ref() noexcept : service_(nullptr) {
  const std::lock_guard lock(service_lock);
  if (current == nullptr) current = make_service().release();
  service_ = current;
  if (service_ != nullptr) ++service_->references;
}

qcksum_service_ref::~qcksum_service_ref() {
  if (service_ == nullptr) return;
  const std::lock_guard lock(service_lock);
  --service_->references;
  const std::unique_ptr<qcksum_service> released(service_->retired && service_->references == 0 ? service_ : nullptr);
}

bool qcksum_service_ref::begin(qcksum_algorithm algorithm, EvpMdCtxPtr& context) const noexcept {
  if (service_ == nullptr) return false;
  if (!context) {
    context.reset(EVP_MD_CTX_new());
    if (!context) return false;
    // The default provider does not need it; another library with the same interface may.
    if (algorithm == qcksum_algorithm::md5) EVP_MD_CTX_set_flags(context.get(), EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
  }
  const EVP_MD* digest = service_->algorithms[static_cast<std::size_t>(algorithm)].get();
  if (EVP_DigestInit_ex2(context.get(), digest, nullptr) == 1) return true;
  ERR_clear_error();
  return false;
}

qcksum_loan::qcksum_loan() noexcept {
  if (service_.get() == nullptr) return;
  {
    const std::lock_guard lock(service_lock);
    for (auto& kept : service_.get()->idle) {
      if (kept) {
        workspace_ = std::move(kept);
        return;
      }
    }
  }
  workspace_.reset(new (std::nothrow) qcksum_workspace);
}

qcksum_loan::~qcksum_loan() {
  if (!workspace_) return;
  const std::lock_guard lock(service_lock);
  for (auto& kept : service_.get()->idle) {
    if (!kept) {
      kept = std::move(workspace_);
      return;
    }
  }
}

EVP_MD_CTX* qcksum_loan::begin(qcksum_algorithm algorithm) noexcept {
  if (!workspace_) return nullptr;
  EvpMdCtxPtr& context = workspace_->contexts[static_cast<std::size_t>(algorithm)];
  return service_.begin(algorithm, context) ? context.get() : nullptr;
}

std::byte* qcksum_loan::buffer() noexcept {
  if (!workspace_) return nullptr;
  if (!workspace_->buffer) workspace_->buffer.reset(static_cast<std::byte*>(qmem_alloc(QCKSUM_BUFFER_SIZE)));
  return workspace_->buffer.get();
}
