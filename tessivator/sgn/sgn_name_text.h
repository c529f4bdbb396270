// Distinguished names read from their bytes, and their text. Internal. May throw std::bad_alloc.
#pragma once

#include <optional>
#include <string>

#include "sgn/sgn_der.h"

// A distinguished name, given as its whole element, in the form of RFC 4514. Types have the short names that OpenSSL
// gives them, where they are known here; other types are dotted, and their values hexadecimal like those that are no
// text. Empty for a longer text than SGN_FACTS_MOST_TEXT, too.
[[nodiscard]] std::string sgn_rfc4514(Bytes name);

// One attribute of a distinguished name.
struct sgn_attribute {
  Bytes type;  // an object identifier's content
  sgn_element value;
};
// Walks the attributes of a name in their order. Forward only.
class sgn_name_reader {
 public:
  explicit sgn_name_reader(Bytes name) noexcept;
  // `starts_set` tells whether the attribute begins a relative distinguished name. Nothing at the end, and where the
  // name is damaged.
  [[nodiscard]] std::optional<sgn_attribute> next(bool& starts_set) noexcept;
  [[nodiscard]] bool is_damaged() const noexcept { return damaged_; }

 private:
  sgn_elements sets_;
  sgn_elements attributes_;
  bool damaged_ = false;
};
