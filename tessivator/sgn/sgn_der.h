// Elements of a signature cut out of its bytes, in DER or BER (X.690), without decoding. Internal.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// Class and number of a tag; of the universal class its number alone.
struct sgn_tag {
  std::uint8_t tag_class = 0;  // 0x00, or 0x80 for context-specific
  std::uint32_t number = 0;
  bool operator==(const sgn_tag&) const = default;
};
inline constexpr sgn_tag sgn_tag_boolean{0, 1};
inline constexpr sgn_tag sgn_tag_integer{0, 2};
inline constexpr sgn_tag sgn_tag_bit_string{0, 3};
inline constexpr sgn_tag sgn_tag_octet_string{0, 4};
inline constexpr sgn_tag sgn_tag_object{0, 6};
inline constexpr sgn_tag sgn_tag_utc_time{0, 23};
inline constexpr sgn_tag sgn_tag_generalized_time{0, 24};
inline constexpr sgn_tag sgn_tag_sequence{0, 16};
inline constexpr sgn_tag sgn_tag_set{0, 17};
constexpr sgn_tag sgn_tag_context(std::uint32_t number) noexcept { return {0x80, number}; }

struct sgn_element {
  sgn_tag tag;
  bool constructed = false;
  Bytes whole;    // as it is encoded
  Bytes content;  // without what ends an element of open length
};

// Reads the elements that follow one another. A read costs time in proportion to the element where its length is open,
// else none.
class sgn_elements {
 public:
  sgn_elements() noexcept = default;
  explicit sgn_elements(Bytes content) noexcept : rest_(content) {}

  // The next element, if it is whole.
  [[nodiscard]] std::optional<sgn_element> next() noexcept;
  // The next element when it has this tag; else the reader stays where it is.
  [[nodiscard]] std::optional<sgn_element> next(sgn_tag wanted) noexcept;
  [[nodiscard]] Bytes rest() const noexcept { return rest_; }

 private:
  Bytes rest_;
};

// The elements inside the first element of `content`; none when that has another tag.
[[nodiscard]] sgn_elements sgn_inside(Bytes content, sgn_tag wanted) noexcept;

// The octets of a string, which BER may hold in pieces: these are put together in `store`. May throw std::bad_alloc.
[[nodiscard]] Bytes sgn_octets(const sgn_element& string, std::string& store);

[[nodiscard]] inline std::string_view sgn_text(Bytes bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The content of an object identifier, encoded by the compiler from its dotted form.
class sgn_oid {
 public:
  template <std::size_t Size>
  consteval explicit sgn_oid(const char (&dotted)[Size]) {
    std::uint64_t arc = 0;
    std::uint64_t first = 0;
    int arcs = 0;
    for (const char c : dotted) {
      if (c >= '0' && c <= '9') {
        arc = arc * 10 + static_cast<unsigned>(c - '0');
        continue;
      }
      if (arcs++ == 0) {
        first = arc * 40;
      } else {
        append(arcs == 2 ? first + arc : arc);
      }
      arc = 0;
    }
  }
  [[nodiscard]] constexpr std::string_view content() const noexcept { return {bytes_.data(), size_}; }
  friend bool operator==(const sgn_oid& a, std::string_view b) noexcept { return a.content() == b; }

 private:
  consteval void append(std::uint64_t arc) {
    int septets = 1;
    while (septets < 9 && arc >> (7 * septets) != 0) ++septets;
    while (septets-- != 0) {
      bytes_.at(size_++) = static_cast<char>((arc >> (7 * septets) & 0x7F) | (septets != 0 ? 0x80 : 0));
    }
  }
  std::array<char, 16> bytes_{};
  std::size_t size_ = 0;
};
