// Types that every component shares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// One UTF-16 unit. All text inside the library is null-terminated UTF-16; on Windows it has wchar_t's form.
using qchar = char16_t;

// An error code of the one error space (qerr.h).
using qerr_t = std::uint32_t;

// Bytes of a file or of memory, borrowed.
using Bytes = std::span<const std::byte>;
