// Digest algorithms and buffers that outlive one checksum, used by qcksum.cpp.
#pragma once

#include <openssl/evp.h>

#include <array>
#include <memory>

#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

inline constexpr std::uint32_t QCKSUM_BUFFER_SIZE = 262144;

using EvpMdCtxPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<EVP_MD_CTX_free>>;

enum class qcksum_algorithm : std::uint8_t { md5, sha1, sha256, sha384, sha512 };
inline constexpr std::size_t QCKSUM_ALGORITHM_COUNT = 5;

// Releases the algorithms and idle buffers when the runtime ends; the next digest fetches them again.
void qcksum_lib_fini() noexcept;

struct qcksum_service;  // the fetched algorithms and the idle workspaces

// Keeps the algorithms alive.
class qcksum_service_ref {
 public:
  qcksum_service_ref() noexcept;  // holds nothing when the algorithms cannot be had
  qcksum_service_ref(const qcksum_service_ref&) = delete;
  qcksum_service_ref& operator=(const qcksum_service_ref&) = delete;
  ~qcksum_service_ref();
  [[nodiscard]] qcksum_service* get() const noexcept { return service_; }
  // Starts a digest in `context`, creating it when null. False when out of memory.
  [[nodiscard]] bool begin(qcksum_algorithm algorithm, EvpMdCtxPtr& context) const noexcept;

 private:
  qcksum_service* service_;
};

// The buffers of one thread: a context for each algorithm and a read buffer, created on first use.
struct qcksum_workspace {
  std::array<EvpMdCtxPtr, QCKSUM_ALGORITHM_COUNT> contexts;
  QmemPtr<std::byte> buffer;
};

// A workspace on loan for one checksum. Creating contexts and a buffer of 256 KiB for each file would cost more than
// the digests of a small file. They are not thread-local: threads of a host come and go, and thread-local objects with
// destructors keep a library from being unloaded.
class qcksum_loan {
 public:
  qcksum_loan() noexcept;
  qcksum_loan(const qcksum_loan&) = delete;
  qcksum_loan& operator=(const qcksum_loan&) = delete;
  ~qcksum_loan();
  // The context of an algorithm with a started digest; null when out of memory.
  [[nodiscard]] EVP_MD_CTX* begin(qcksum_algorithm algorithm) noexcept;
  // The read buffer of QCKSUM_BUFFER_SIZE bytes; null when out of memory.
  [[nodiscard]] std::byte* buffer() noexcept;

 private:
  qcksum_service_ref service_;
  std::unique_ptr<qcksum_workspace> workspace_;
};
