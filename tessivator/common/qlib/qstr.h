// Wide text: length, copies, conversion, formatting, console output. Capacities are in bytes.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "common/qlib/qfmt.h"
#include "common/qlib/qtypes.h"

// A heap copy of `text` (null gives an empty string); null when memory runs out. The caller frees it with qmem_free.
// `tag` names the call site for diagnostics and is ignored.
[[nodiscard]] qchar* qstr_dup(const qchar* text, std::uint32_t tag = 0) noexcept;

// Length in units, and in bytes without the terminator; 0 for null.
[[nodiscard]] std::size_t qstr_len(const qchar* text) noexcept;
[[nodiscard]] std::size_t qstr_size(const qchar* text) noexcept;

// Widens 7-bit ASCII into `destination`. Returns the destination, or null when it is null, is smaller than 2 x length +
// 2 bytes, or the text has a byte of 128 or more.
qchar* qstr_from_ascii(qchar* destination, std::size_t destination_bytes, const char* source) noexcept;

// UTF-8 to wide and back, the whole text with its terminator. Return the destination, or null when a pointer is null or
// the destination is too small (then a line is printed to standard output). Invalid UTF-8 and unpaired surrogates
// become U+FFFD.
qchar* qstr_utoq(qchar* destination, std::size_t destination_bytes, const char* utf8) noexcept;
char* qstr_qtou(char* destination, std::size_t destination_bytes, const qchar* wide) noexcept;

// The same for containers. May throw std::bad_alloc.
[[nodiscard]] std::string qstr_to_utf8(std::u16string_view wide);
[[nodiscard]] std::u16string qstr_to_wide(std::string_view utf8);

// Bounded formatting, see qfmt_format; returns the number of units written, or -1 when the text was cut.
template <class... Args>
int qstr_printf(qchar* destination, std::size_t destination_bytes, const qchar* format, const Args&... args) noexcept {
  const std::array<qfmt_arg, sizeof...(Args) + 1> list{qfmt_arg(args)..., qfmt_arg(0)};
  return qfmt_format(destination, destination_bytes, format, std::span(list).first(sizeof...(Args)));
}

// Formats and writes to standard output: wide text to a console, else converted (Windows: console output code page with
// CR LF line ends; Linux: UTF-8 with LF). Returns the number of units, or -1.
int qstr_console_write(const qchar* format, std::span<const qfmt_arg> arguments) noexcept;
template <class... Args>
int qstr_console_printf(const qchar* format, const Args&... args) noexcept {
  const std::array<qfmt_arg, sizeof...(Args) + 1> list{qfmt_arg(args)..., qfmt_arg(0)};
  return qstr_console_write(format, std::span(list).first(sizeof...(Args)));
}

// Comparison and lower-casing of A-Z only, whatever the locale.
[[nodiscard]] bool qstr_equal_nocase(std::u16string_view a, std::u16string_view b) noexcept;
void qstr_lower_ascii(qchar* text) noexcept;  // in place
