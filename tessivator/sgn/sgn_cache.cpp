#include "sgn/sgn_cache.h"

#include "sgn/sgn_types.h"

namespace {

// Limits of one cache: about two megabytes of decoded certificates, and the same of paths. A full table of certificates
// is cleared, which only costs some work; the table of paths drops the least recently used one. Larger certificates are
// not cached.
constexpr std::size_t max_certificates = 256;
constexpr std::size_t max_encoding = 8192;
constexpr std::size_t max_written = 4096;
constexpr std::size_t max_unwritten = 65536;

}  // namespace

sgn_certificate_ptr sgn_store_cache::find(std::string_view encoding) const {
  const auto found = certificates_.find(encoding);
  return found == certificates_.end() ? nullptr : found->second;
}

void sgn_store_cache::add(std::string_view encoding, const sgn_certificate_ptr& certificate) {
  if (encoding.size() > max_encoding) return;
  if (certificates_.size() >= max_certificates) certificates_.clear();
  certificates_.emplace(encoding, certificate);
}

const sgn_store_cache::written* sgn_store_cache::find_written(const qchar* path) {
  const auto found = by_path_.find(path);
  if (found == by_path_.end()) return nullptr;
  written_.splice(written_.begin(), written_, found->second);
  return &written_.front();
}

void sgn_store_cache::set_unwritten(const std::array<std::uint8_t, QCKSUM_SHA256_BIN_LEN>& digest, qerr_t code) {
  if (first_failure_ == QERR_OK) first_failure_ = code;
  if (unwritten_.size() < max_unwritten) unwritten_.insert(digest);
}

void sgn_store_cache::set_written(written one) {
  unwritten_.erase(one.digest);
  if (find_written(one.path.c_str()) != nullptr) {
    written_.front().digest = one.digest;
    written_.front().source = std::move(one.source);
    return;
  }
  if (written_.size() >= max_written) {
    by_path_.erase(written_.back().path);
    written_.pop_back();
  }
  written_.push_front(std::move(one));
  by_path_.emplace(written_.front().path, written_.begin());
}

sgn_store_cache* sgn_store_cache_create() noexcept { return new (std::nothrow) sgn_store_cache(); }

void sgn_store_cache_free(sgn_store_cache* cache) noexcept { delete cache; }

sgn_store_failures sgn_store_cache_failures(const sgn_store_cache* cache) noexcept {
  return cache == nullptr ? sgn_store_failures() : cache->failures();
}
