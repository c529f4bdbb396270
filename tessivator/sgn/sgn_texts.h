// Texts of what a signature or a certificate holds: numbers, algorithms, times, strings. Internal. All may throw
// std::bad_alloc; what cannot be read gives an empty text.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "sgn/sgn_der.h"

// Lower-case hexadecimal.
[[nodiscard]] std::string sgn_hex(Bytes bytes);
// The same of the SHA-256 of `bytes`.
[[nodiscard]] std::string sgn_sha256_hex(Bytes bytes);
// The dotted form of an object identifier's content of at most 64 octets.
[[nodiscard]] std::string sgn_dotted(Bytes content);

// A name of `names` by its identifier's content; empty when it is none of them.
using sgn_named_oid = std::pair<sgn_oid, std::string_view>;
[[nodiscard]] inline std::string_view sgn_find_name(std::span<const sgn_named_oid> names, Bytes object) noexcept {
  const std::string_view content = sgn_text(object);
  for (const auto& [known, name] : names) {
    if (known == content) return name;
  }
  return {};
}

// Names of algorithms by their identifiers; the dotted form of those that are not known.
[[nodiscard]] std::string sgn_digest_name(Bytes object);
[[nodiscard]] std::string sgn_key_name(Bytes object);
[[nodiscard]] std::string sgn_signature_name(Bytes object);

// Of an integer's content: its magnitude in whole octets, after "-" when it is negative.
[[nodiscard]] std::string sgn_integer_hex(Bytes content);

// RFC 3339 in UTC of a UTCTime or GeneralizedTime, with its fraction. BER's other forms are read too, except local
// time. A leap second becomes the second before it.
[[nodiscard]] std::string sgn_time(const sgn_element& time);

// UTF-8 of a character string of any type; nothing when it is not a string, not valid, or longer than `most` bytes.
[[nodiscard]] std::optional<std::string> sgn_string(const sgn_element& string, std::size_t most);
