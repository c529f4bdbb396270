// SHA-256 of what is read or written piece by piece.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qmem.h"

class ReportDigest {
 public:
  // Throws std::bad_alloc, as all of these do.
  ReportDigest();
  void add(std::string_view bytes);
  // Of all that was added, in lower-case hexadecimal; nothing can be added after it.
  [[nodiscard]] std::string text();

 private:
  std::unique_ptr<EVP_MD_CTX, FreeWith<EVP_MD_CTX_free>> context_;
};
