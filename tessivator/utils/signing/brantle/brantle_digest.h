// SHA-256 of a document while it is written.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

class BrantleDigest {
 public:
  // May throw std::bad_alloc.
  BrantleDigest();
  void add(std::string_view bytes) noexcept;
  // Lower-case hexadecimal; empty when anything failed. Ends the digest.
  [[nodiscard]] std::string text();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };
  std::unique_ptr<evp_md_ctx_st, Free> context_;
  bool good_;
};
