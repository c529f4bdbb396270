// The program's own standard streams.
#pragma once

#include <string_view>

#include "common/qlib/qtypes.h"

// Bytes as they are to standard output. False when they could not be written in full.
[[nodiscard]] bool reportPutBytes(std::string_view bytes) noexcept;
// A text to standard error.
void reportPutError(std::u16string_view text) noexcept;
