// Type-safe wide formatting. Arguments are captured with their own type into a tagged array; the conversion in the
// format decides how they print, so a wrong format prints nonsense but never reads wrong memory.
//
//   %s %ls   wide text (const qchar*, std::u16string); a narrow argument is widened
//   %hs %S   narrow text
//   %c       one unit
//   %d %i    signed 32 bits: %d of 0xFFFFFFFF is -1        %ld is the same (a Windows long)
//   %u %x %X %o   unsigned 32 bits                         %lu %lx likewise
//   %lld %llu %llx %I64d %zu   64 bits                     %p pointer
//   flags - 0 + space #, a width and a precision (also *) as in printf; %% is a percent sign
#pragma once

#include <concepts>
#include <span>
#include <string>
#include <type_traits>

#include "common/qlib/qtypes.h"

struct qfmt_arg {
  enum class kind : std::uint8_t { integer, wide, narrow, pointer };
  kind type = kind::integer;
  std::uint64_t integer = 0;  // sign-extended where the argument was signed
  const void* pointer = nullptr;

  template <class T>
  requires(std::integral<T> || std::is_enum_v<T>) qfmt_arg(T value)
  noexcept  // NOLINT(google-explicit-constructor): captures an argument list
      : integer(static_cast<std::uint64_t>(value)) {}
  qfmt_arg(const qchar* text) noexcept : type(kind::wide), pointer(text) {}          // NOLINT
  qfmt_arg(const std::u16string& text) noexcept : qfmt_arg(text.c_str()) {}          // NOLINT
  qfmt_arg(const char* text) noexcept : type(kind::narrow), pointer(text) {}         // NOLINT
  qfmt_arg(const std::string& text) noexcept : qfmt_arg(text.c_str()) {}             // NOLINT
  qfmt_arg(const void* address) noexcept : type(kind::pointer), pointer(address) {}  // NOLINT
};

// How text arguments come out: unit by unit, or through the filter of qprintable.h. For what people read, since the
// name of a file may hold line feeds and a terminal's commands.
enum class qfmt_values : std::uint8_t { exact, printable };

// Formats into `destination` of `destination_bytes` bytes: writes at most destination_bytes / 2 - 1 units and
// terminates the text if there is room. Returns the number of units, or -1 when the text was cut or the destination is
// missing. A null text argument prints "(null)".
int qfmt_format(qchar* destination, std::size_t destination_bytes, const qchar* format,
                std::span<const qfmt_arg> arguments, qfmt_values values = qfmt_values::exact) noexcept;

// Formats into `text`, which takes the exact size. Returns false when memory runs out.
[[nodiscard]] bool qfmt_to_string(std::u16string& text, const qchar* format, std::span<const qfmt_arg> arguments,
                                  qfmt_values values = qfmt_values::exact) noexcept;
