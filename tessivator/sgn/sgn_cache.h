// What one scan request has already decoded and written. Files of one maker carry the same few certificates: with a
// cache each is decoded, named and written once, and written again only after another certificate took its name. That
// is logged as a warning which names both scanned files: equal names mean equal issuer and serial number, which a
// genuine issuer never gives twice.
#pragma once

#include <memory>

#include "common/qlib/qmem.h"

struct sgn_store_cache;

// An empty cache, or null when memory runs out (every routine takes null for "no cache"). Used by one thread at a time;
// its size is bounded whatever the number of files.
[[nodiscard]] sgn_store_cache* sgn_store_cache_create() noexcept;
void sgn_store_cache_free(sgn_store_cache* cache) noexcept;

using SgnStoreCacheOwner = std::unique_ptr<sgn_store_cache, FreeWith<sgn_store_cache_free>>;
