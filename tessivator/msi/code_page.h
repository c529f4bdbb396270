// Text in a Windows code page, as a package's string pool holds it.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

// Whether `code_page` can be decoded; 0 (neutral) is read as 1252, the code page of most packages.
[[nodiscard]] bool code_page_is_known(std::uint32_t code_page) noexcept;

// `bytes` as UTF-16; a code page that is not known is read as 1252, too. As on Windows, characters of the user-defined
// areas of 936, 949 and 950 are private-use characters, and a byte that the code page does not define becomes U+FFFD,
// in 1252 the control character of the same value, in 932 U+30FB. May throw std::bad_alloc.
[[nodiscard]] std::u16string code_page_decode(std::uint32_t code_page, Bytes bytes);
