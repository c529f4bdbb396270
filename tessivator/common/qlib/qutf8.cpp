#include "common/qlib/qutf8.h"

namespace {

// Length of the sequence that a lead byte opens, and the range of its second byte; the ranges shut out overlong forms,
// surrogates and values above U+10FFFF (Unicode, table 3-7).
struct lead_rule {
  std::size_t length = 0;
  std::uint8_t low = 0x80;
  std::uint8_t high = 0xBF;
};

lead_rule rule_of(std::uint8_t lead) noexcept {
  if (lead < 0xC2) return {};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead < 0xF0) {
    return {3, static_cast<std::uint8_t>(lead == 0xE0 ? 0xA0 : 0x80),
            static_cast<std::uint8_t>(lead == 0xED ? 0x9F : 0xBF)};
  }
  if (lead < 0xF5) {
    return {4, static_cast<std::uint8_t>(lead == 0xF0 ? 0x90 : 0x80),
            static_cast<std::uint8_t>(lead == 0xF4 ? 0x8F : 0xBF)};
  }
  return {};
}

}  // namespace

qutf8_step qutf8_next(std::string_view text) noexcept {
  const auto lead = static_cast<std::uint8_t>(text.front());
  if (lead < 0x80) return {lead, 1, true};
  lead_rule rule = rule_of(lead);
  if (rule.length == 0) return {};
  char32_t scalar = lead & (0x7FU >> rule.length);
  for (std::size_t i = 1; i < rule.length; ++i) {
    if (i >= text.size()) return {QUTF8_REPLACEMENT, i, false};
    const auto next = static_cast<std::uint8_t>(text[i]);
    if (next < rule.low || next > rule.high) return {QUTF8_REPLACEMENT, i, false};
    scalar = (scalar << 6) | (next & 0x3FU);
    rule.low = 0x80;
    rule.high = 0xBF;
  }
  return {scalar, rule.length, true};
}

qutf8_step qutf16_next(std::u16string_view text) noexcept {
  const char16_t unit = text.front();
  if (unit < 0xD800 || unit > 0xDFFF) return {unit, 1, true};
  if (unit > 0xDBFF || text.size() < 2 || text[1] < 0xDC00 || text[1] > 0xDFFF) return {};
  return {0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (static_cast<char32_t>(text[1]) - 0xDC00), 2,
          true};
}

void qutf8_append(std::string& text, char32_t scalar) {
  const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(static_cast<std::uint8_t>(byte))); };
  if (scalar < 0x80) {
    put(scalar);
    return;
  }
  if (scalar < 0x800) {
    put(0xC0 | (scalar >> 6));
  } else {
    if (scalar < 0x10000) {
      put(0xE0 | (scalar >> 12));
    } else {
      put(0xF0 | (scalar >> 18));
      put(0x80 | ((scalar >> 12) & 0x3F));
    }
    put(0x80 | ((scalar >> 6) & 0x3F));
  }
  put(0x80 | (scalar & 0x3F));
}

void qutf16_append(std::u16string& text, char32_t scalar) {
  if (scalar < 0x10000) {
    text.push_back(static_cast<char16_t>(scalar));
    return;
  }
  text.push_back(static_cast<char16_t>(0xD800 + ((scalar - 0x10000) >> 10)));
  text.push_back(static_cast<char16_t>(0xDC00 + ((scalar - 0x10000) & 0x3FF)));
}
