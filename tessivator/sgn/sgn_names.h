// Building the list of certificate names of a decoded signature. Internal.
#pragma once

#include "common/qlib/qerr.h"
#include "sgn/sgn_cert_names.h"
#include "sgn/sgn_types.h"

// A list under construction; freed unless released.
class sgn_name_list {
 public:
  // Puts a named certificate at the head. False when memory runs out.
  [[nodiscard]] bool push(const sgn_certificate& certificate) noexcept;
  // Whether there is room for one more name. The first time that there is none is remembered.
  [[nodiscard]] bool has_room() noexcept;
  // Whether has_room had to say no.
  [[nodiscard]] bool is_cut() const noexcept { return cut_; }
  [[nodiscard]] sgn_cert_name* release() noexcept { return head_.release(); }

 private:
  SgnCertNamesOwner head_;
  std::size_t count_ = 0;
  bool cut_ = false;
};

// The options of an extraction.
struct sgn_request {
  const qchar* output_directory;
  std::uint32_t all_flag;
  sgn_store_cache* cache;
};

// Names and stores the selected certificates of `p7` and adds the names at the front of `names`. May throw
// std::bad_alloc.
[[nodiscard]] qerr_t sgn_process_p7(const sgn_p7& p7, const sgn_request& request, sgn_name_list& names);
