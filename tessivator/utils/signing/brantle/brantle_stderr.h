// Standard error, for what the program says while it works and about what it left out.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/qlib/qtypes.h"

[[nodiscard]] bool brantle_stderr_is_terminal() noexcept;

// The columns of its terminal, 80 where it does not tell.
[[nodiscard]] std::size_t brantle_stderr_width() noexcept;

// Writes `text`: wide to a Windows console, UTF-8 otherwise. What cannot be written is lost.
void brantle_stderr_write(std::u16string_view text) noexcept;
