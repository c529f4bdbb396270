// What one scan request has already decoded and written. Files of one maker carry the same few certificates: with a
// cache each is decoded, named and written once. It is written again only after another certificate with the same name;
// that is logged as a warning with both scanned files, because a genuine issuer never uses a serial number twice.
#pragma once

#include <memory>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"

struct sgn_store_cache;

// The certificates whose files a request could not write: each counts once, and no more when it could be written after
// all; the number stays right up to 65,536.
struct sgn_store_failures {
  std::size_t certificates = 0;
  qerr_t code = QERR_OK;  // of the first
};

// An empty cache, or null when memory runs out (every function accepts null for "no cache"). One thread at a time; its
// size is bounded for any number of files.
[[nodiscard]] sgn_store_cache* sgn_store_cache_create() noexcept;
void sgn_store_cache_free(sgn_store_cache* cache) noexcept;
// None for a null cache.
[[nodiscard]] sgn_store_failures sgn_store_cache_failures(const sgn_store_cache* cache) noexcept;

using SgnStoreCacheOwner = std::unique_ptr<sgn_store_cache, FreeWith<sgn_store_cache_free>>;
