// Texts of what a signature or a certificate holds: names, numbers, times. Internal. All may throw std::bad_alloc; what
// cannot be read gives an empty text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sgn/sgn_der.h"

// Lower-case hexadecimal.
[[nodiscard]] std::string sgn_hex(Bytes bytes);
// The same of the SHA-256 of `bytes`.
[[nodiscard]] std::string sgn_sha256_hex(Bytes bytes);
// The dotted form of an object identifier's content of at most 64 octets.
[[nodiscard]] std::string sgn_dotted(Bytes content);

// Names of algorithms by their identifiers, whose dotted form stands for those that are not known.
[[nodiscard]] std::string sgn_digest_name(Bytes object);
[[nodiscard]] std::string sgn_key_name(Bytes object);
[[nodiscard]] std::string sgn_signature_name(Bytes object);

// An integer's content: magnitude in whole octets, behind "-" where it is negative.
[[nodiscard]] std::string sgn_integer_hex(Bytes content);

// RFC 3339 in UTC of a UTCTime or GeneralizedTime, with its fraction. BER's other forms are read, too, but those in
// local time. The second that is put in at times is told as the one before.
[[nodiscard]] std::string sgn_time(const sgn_element& time);

// UTF-8 of a character string of any type; nothing when it is none, is not valid, or is longer than `most` bytes.
[[nodiscard]] std::optional<std::string> sgn_string(const sgn_element& string, std::size_t most);

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
