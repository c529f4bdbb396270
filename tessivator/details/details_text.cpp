#include "details/details_text.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t no_digit = 64;

constexpr std::array<std::uint8_t, 256> digit_values = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(no_digit);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

bool has_wide_names() noexcept { return qpath_native_separator() == u'\\'; }

// `digits` places of `value`, filled up with zeros.
void put(std::string& text, std::uint64_t value, std::size_t digits) {
  text.resize(text.size() + digits);
  for (std::size_t i = 1; i <= digits; ++i, value /= 10) text[text.size() - i] = static_cast<char>('0' + value % 10);
}

// Without its end; empty for a year of other than four digits.
std::string begin_of(std::int64_t seconds) {
  constexpr std::int64_t first = -62167219200;  // 0000-01-01T00:00:00Z
  constexpr std::int64_t last = 253402300799;   // 9999-12-31T23:59:59Z
  std::string text;
  if (seconds < first || seconds > last) return text;
  const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const auto of_day = static_cast<std::uint64_t>((time - day).count());
  text.reserve(30);
  put(text, static_cast<std::uint64_t>(static_cast<int>(date.year())), 4);
  put(text += '-', static_cast<unsigned>(date.month()), 2);
  put(text += '-', static_cast<unsigned>(date.day()), 2);
  put(text += 'T', of_day / 3600, 2);
  put(text += ':', of_day / 60 % 60, 2);
  put(text += ':', of_day % 60, 2);
  return text;
}

}  // namespace

std::string details_time_text(std::int64_t seconds, std::uint32_t nanoseconds) {
  std::string text = begin_of(seconds);
  if (text.empty()) return text;
  put(text += '.', nanoseconds, 9);
  return text += 'Z';
}

std::string details_time_text(std::int64_t seconds) {
  std::string text = begin_of(seconds);
  if (!text.empty()) text += 'Z';
  return text;
}

std::string details_path_bytes(std::u16string_view path) {
  std::string bytes;
  if (has_wide_names()) {
    for (const qchar unit : path) {
      bytes += static_cast<char>(unit & 255U);
      bytes += static_cast<char>(unit >> 8U);
    }
  } else if (!qstr_name_to_bytes(path, bytes)) {
    bytes = qstr_to_utf8(path);
  }
  return bytes;
}

bool details_path(std::string_view name, std::string_view name_bytes, std::u16string& path) {
  if (name_bytes.empty()) {
    path = qstr_to_wide(name);
  } else if (has_wide_names()) {
    if (name_bytes.size() % 2 != 0) return false;
    path.clear();
    for (std::size_t i = 0; i < name_bytes.size(); i += 2) {
      const auto low = static_cast<unsigned char>(name_bytes[i]);
      const auto high = static_cast<unsigned char>(name_bytes[i + 1]);
      path += static_cast<qchar>(high << 8U | low);
    }
  } else {
    path = qstr_name_from_bytes(name_bytes);
  }
  return path.find(u'\0') == path.npos;
}

std::string_view details_system() noexcept { return has_wide_names() ? "windows" : "linux"; }

std::string details_hex(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t one : bytes) {
    text += "0123456789abcdef"[one >> 4U];
    text += "0123456789abcdef"[one & 15U];
  }
  return text;
}

void details_base64_append(std::string& text, std::string_view bytes) {
  text.reserve(text.size() + (bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      bits = bits << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? alphabet[bits >> (18 - 6 * i) & 63U] : '=';
    }
  }
}

bool details_base64_decode(std::string_view text, std::string& bytes) {
  if (text.size() % 4 != 0) return false;
  bytes.reserve(bytes.size() + text.size() / 4 * 3);
  for (; !text.empty(); text.remove_prefix(4)) {
    std::size_t digits = 4;
    if (text.size() == 4 && text.ends_with('=')) digits = text.ends_with("==") ? 2 : 3;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      const std::uint8_t value = i < digits ? digit_values[static_cast<unsigned char>(text[i])] : 0;
      if (value == no_digit) return false;
      bits = bits << 6U | value;
    }
    for (std::size_t i = 1; i < digits; ++i) bytes += static_cast<char>(bits >> (24 - 8 * i) & 255U);
    // Bits that no byte has room for would make two texts of the same bytes.
    if (digits < 4 && (bits << (8 * (digits - 1)) & 0xFFFFFFU) != 0) return false;
  }
  return true;
}
