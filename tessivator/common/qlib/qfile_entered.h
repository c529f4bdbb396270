// How often a walk has entered each directory.
#pragma once

#include <vector>

#include "common/qlib/qfile_provider.h"

// Eight bytes a slot, so that a million directories cost 16 MiB: 59 bits of a mix of the identity and a count. That two
// of a million directories share their bits has odds of one in a million, and then they share their count.
class qfile_entered {
 public:
  static constexpr std::uint64_t most = 16;

  // Counts one more entry; false, without counting, when there have been most. May throw std::bad_alloc.
  [[nodiscard]] bool enter(const qfile_identity& directory);

 private:
  std::uint64_t& slot_of(std::uint64_t key) noexcept;
  void grow();

  std::vector<std::uint64_t> slots_;  // none or a power of two; 0 is free
  std::size_t used_ = 0;
};
