#include "sgn/sgn_cache.h"

#include "sgn/sgn_types.h"

namespace {

// Bounds of one cache: about two megabytes of decoded certificates and as much of paths. A full table starts anew,
// which costs a little work and nothing else. Larger certificates than these are not worth keeping.
constexpr std::size_t max_certificates = 256;
constexpr std::size_t max_encoding = 8192;
constexpr std::size_t max_written = 4096;

}  // namespace

SgnCertificatePtr sgn_store_cache::find(std::string_view encoding) const {
  const auto found = certificates_.find(encoding);
  return found == certificates_.end() ? nullptr : found->second;
}

void sgn_store_cache::add(std::string_view encoding, const SgnCertificatePtr& certificate) {
  certificate->id = ++last_id_;
  if (encoding.size() > max_encoding) return;
  if (certificates_.size() >= max_certificates) certificates_.clear();
  certificates_.emplace(encoding, certificate);
}

bool sgn_store_cache::is_written(const qchar* path, const sgn_certificate& certificate) const {
  const auto found = written_.find(std::u16string_view(path));
  return found != written_.end() && certificate.id != 0 && found->second == certificate.id;
}

void sgn_store_cache::set_written(const qchar* path, const sgn_certificate& certificate) {
  if (written_.size() >= max_written) written_.clear();
  written_.insert_or_assign(std::u16string(path), certificate.id);
}

sgn_store_cache* sgn_store_cache_create() noexcept { return new (std::nothrow) sgn_store_cache(); }

void sgn_store_cache_free(sgn_store_cache* cache) noexcept { delete cache; }
