// What is looked at before a signature is decoded: where it ends, and where and how many its certificates and signers
// are. Nothing is kept but their places, so that the cost of decoding is known from the bytes alone. Internal.
#pragma once

#include <vector>

#include "common/qlib/qtypes.h"

// The limit on certificates, and on signers, of a signature. Real ones have a handful.
inline constexpr std::size_t sgn_most_of_a_set = 4096;

// The members of a set, in order.
struct sgn_set {
  std::vector<Bytes> members;  // as they are encoded; at most sgn_most_of_a_set
  std::size_t count = 0;       // all of them
};

struct sgn_outline {
  Bytes bytes;  // the structure without what follows it
  sgn_set certificates;
  sgn_set signers;
  std::size_t elements = 0;  // in the whole structure, however deep
};

// Outlines the PKCS#7 structure at the start of `signature`; false when it is incomplete. The sets of a malformed
// structure may be incomplete. Time is proportional to the bytes. May throw std::bad_alloc.
[[nodiscard]] bool sgn_outline_read(Bytes signature, sgn_outline& out);

// The most elements of a structure of so many bytes that is decoded. OpenSSL takes some hundred bytes for an element
// that may have two; those of real structures have twenty and more on average.
[[nodiscard]] constexpr std::size_t sgn_most_elements(std::size_t bytes) noexcept {
  constexpr std::size_t free_elements = std::size_t{1} << 17;
  constexpr std::size_t bytes_an_element = 16;
  return free_elements + bytes / bytes_an_element;
}
