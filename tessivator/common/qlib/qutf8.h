// The one UTF-8 and UTF-16 decoder. The same code serves both platforms, so that a damaged text has the same
// replacement characters, and a report the same bytes, wherever it is made.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

inline constexpr char32_t QUTF8_REPLACEMENT = 0xFFFD;

// What stands at the front of a text.
struct qutf8_step {
  char32_t scalar = QUTF8_REPLACEMENT;
  std::size_t length = 1;  // bytes or units that it takes; of an invalid sequence the maximal subpart (Unicode, 3.9)
  bool valid = false;
};

// `text` is not empty. Overlong forms, encoded surrogates and values above U+10FFFF are invalid (RFC 3629).
[[nodiscard]] qutf8_step qutf8_next(std::string_view text) noexcept;

// The same for UTF-16; an unpaired surrogate is invalid and takes one unit.
[[nodiscard]] qutf8_step qutf16_next(std::u16string_view text) noexcept;

// Append a scalar value. May throw std::bad_alloc.
void qutf8_append(std::string& text, char32_t scalar);
void qutf16_append(std::u16string& text, char32_t scalar);
