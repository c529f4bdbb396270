// Text in a Windows code page, as a package's string pool holds it.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

// `bytes` as UTF-16. 0 (neutral) and a code page that is not known are read as 1252, the code page of most packages; a
// byte that the code page does not define becomes U+FFFD, in 1252 the control character of the same value, in 932
// U+30FB, as Windows has it. May throw std::bad_alloc.
[[nodiscard]] std::u16string code_page_decode(std::uint32_t code_page, Bytes bytes);
