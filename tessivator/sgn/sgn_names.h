// Building a certificate name list, and the steps that name and store one certificate. Internal.
#pragma once

#include "sgn/sgn_types.h"
#include "sgn/sgn_x509.h"

// A list under construction; what is not released is freed.
class SgnNameList {
 public:
  SgnNameList() noexcept = default;
  SgnNameList(const SgnNameList&) = delete;
  SgnNameList& operator=(const SgnNameList&) = delete;
  ~SgnNameList() { sgn_cert_names_free(head_); }
  // Puts a copy of `stem` at the head. False without memory.
  [[nodiscard]] bool push(const qchar* stem) noexcept;
  [[nodiscard]] sgn_cert_name* release() noexcept {
    sgn_cert_name* const head = head_;
    head_ = nullptr;
    return head;
  }

 private:
  sgn_cert_name* head_ = nullptr;
};

// What the caller of an extraction asked for.
struct sgn_request {
  const qchar* output_directory;
  std::uint32_t all_flag;
  sgn_store_cache* cache;
};

// Names and stores the chosen certificates of `p7` and puts the names in front of `names`. May throw std::bad_alloc.
[[nodiscard]] qerr_t sgn_process_p7(const sgn_p7& p7, const sgn_request& request, SgnNameList& names);

// Computes the stem of a certificate that has none yet.
[[nodiscard]] qerr_t sgn_name_certificate(sgn_certificate& certificate) noexcept;

// Writes the file of a named certificate. May throw std::bad_alloc.
[[nodiscard]] qerr_t sgn_store_certificate(const sgn_certificate& certificate, const qchar* output_directory,
                                           sgn_store_cache* cache);
