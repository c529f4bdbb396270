// The one filter for what people read: on a terminal, in the log, in messages.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// The unit of `text` at `at`, or U+FFFD in place of: control characters (U+0000..1F, U+007F..9F, U+2028, U+2029), which
// could move a terminal's cursor or forge a line; marks that turn the direction of text (U+061C, U+200E, U+200F,
// U+202A..202E, U+2066..2069), which let a name look like another; and unpaired surrogates, such as the bytes of a
// Linux file name that are no UTF-8.
[[nodiscard]] qchar qprintable_unit(std::u16string_view text, std::size_t at) noexcept;

// The whole text. May throw std::bad_alloc.
[[nodiscard]] std::u16string qprintable(std::u16string_view text);
