// Texts of a details file: times, paths, hexadecimal and base64.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// RFC 3339 in UTC of seconds since 1970, with nine digits behind the point: "2024-02-29T23:59:59.000000100Z". Empty
// outside the years 0 to 9999. May throw std::bad_alloc.
[[nodiscard]] std::string details_time_text(std::int64_t seconds, std::uint32_t nanoseconds);
// The same without fraction.
[[nodiscard]] std::string details_time_text(std::int64_t seconds);

// What `name_bytes` says of a path of this system, and the path again from name and name_bytes as they were read: false
// for what no path of this system has. May throw std::bad_alloc.
[[nodiscard]] std::string details_path_bytes(std::u16string_view path);
[[nodiscard]] bool details_path(std::string_view name, std::string_view name_bytes, std::u16string& path);
// "linux" or "windows".
[[nodiscard]] std::string_view details_system() noexcept;

// Lower-case hexadecimal. May throw std::bad_alloc.
[[nodiscard]] std::string details_hex(std::span<const std::uint8_t> bytes);

// Base64 (RFC 4648, section 4) with its padding. Both append; what is no base64 from end to end gives false. May throw
// std::bad_alloc.
void details_base64_append(std::string& text, std::string_view bytes);
[[nodiscard]] bool details_base64_decode(std::string_view text, std::string& bytes);
