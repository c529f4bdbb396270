// How often a walk has entered each directory.
#pragma once

#include <vector>

#include "common/qlib/qfile_provider.h"

// Eight bytes a slot, so a million directories cost 16 MiB: 54 bits of a hash of the identity and two counts. The odds
// that any two of a million directories share a hash are one in 30,000; those two then share their counts.
class qfile_entered {
 public:
  static constexpr std::uint64_t most = 16;

  // Whether the directory was entered before. Never throws.
  [[nodiscard]] bool contains(const qfile_identity& directory) const noexcept;

  // Counts one more entry; false, without counting, when the limit is reached. Ways through links and ways without have
  // a count each, so the real directory is never missing because links led to it first. May throw std::bad_alloc.
  [[nodiscard]] bool enter(const qfile_identity& directory, bool through_link);

 private:
  [[nodiscard]] std::size_t place_of(std::uint64_t key) const noexcept;
  void grow();

  std::vector<std::uint64_t> slots_;  // none or a power of two; 0 is free
  std::size_t used_ = 0;
};
