#include "utils/report/report_text.h"

#include <algorithm>

#include "common/qlib/qstr.h"
#include "common/qlib/qutf8.h"

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

int hexValue(char c) noexcept {
  const std::size_t at = hex_digits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + ('a' - 'A')) : c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// Copies what stands between the characters for which `escape` appends something else.
template <class Escape>
void appendEscaped(std::string& out, std::string_view text, std::string_view special, Escape&& escape) {
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of(special), text.size());
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) return;
    escape(text.front());
    text.remove_prefix(1);
  }
}

constexpr std::string_view json_special(
    "\"\\<\x7f\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16\17\20\21\22\23\24\25\26\27\30\31\32\33\34\35\36\37", 36);

// Blanks that spreadsheets skip before a formula's sign.
bool isBlank(char32_t scalar) noexcept {
  return scalar == ' ' || scalar == 0xA0 || (scalar >= 0x2000 && scalar <= 0x200B) || scalar == 0x3000 ||
         scalar == 0xFEFF;
}

// A sign, also a full-width one, behind any number of blanks; or a tab or line end, which spreadsheets drop.
bool startsFormula(std::string_view text) noexcept {
  while (!text.empty()) {
    const qutf8_step step = qutf8_next(text);
    if (!isBlank(step.scalar)) {
      return std::u32string_view(U"=+-@\t\r\n\uFF1D\uFF0B\uFF0D\uFF20").find(step.scalar) != std::u32string_view::npos;
    }
    text.remove_prefix(step.length);
  }
  return false;
}

}  // namespace

bool hexToBytes(std::string_view hex, CertificateName& bytes) noexcept {
  if (hex.size() != bytes.size() * 2) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::size_t high = hex_digits.find(hex[2 * i]);
    const std::size_t low = hex_digits.find(hex[2 * i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return false;
    bytes[i] = static_cast<std::uint8_t>(high << 4U | low);
  }
  return true;
}

std::string bytesToHex(std::span<const std::uint8_t> bytes) {
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    hex += hex_digits[byte >> 4U];
    hex += hex_digits[byte & 15U];
  }
  return hex;
}

void appendBase64OfHex(std::string& out, std::string_view hex) {
  static constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  // Three hexadecimal digits are two of base64; what is missing at the end counts as zeros.
  for (std::size_t at = 0; at < hex.size(); at += 3) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      const int digit = at + i < hex.size() ? hexValue(hex[at + i]) : 0;
      bits = bits << 4U | static_cast<unsigned>(digit & 15);
    }
    out += digits[bits >> 6U];
    if (hex.size() - at > 1) out += digits[bits & 63U];
  }
}

void appendXml(std::string& out, std::string_view text) {
  appendEscaped(out, text, "&<>\"\t\n\r", [&](char c) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\t':
        out += "&#9;";
        break;
      case '\n':
        out += "&#10;";
        break;
      default:
        out += "&#13;";
    }
  });
}

void appendJson(std::string& out, std::string_view text) {
  out += '"';
  appendEscaped(out, text, json_special, [&](char c) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
      return;
    }
    out += "\\u00";
    out += hex_digits[static_cast<unsigned char>(c) >> 4U];
    out += hex_digits[static_cast<unsigned char>(c) & 15U];
  });
  out += '"';
}

void appendCsv(std::string& out, std::string_view text) {
  const bool formula = startsFormula(text);
  const bool quoted = text.find_first_of(",;\"\t\r\n") != std::string_view::npos;
  if (quoted) out += '"';
  if (formula) out += '\'';
  appendEscaped(out, text, "\"", [&](char) { out += "\"\""; });
  if (quoted) out += '"';
}

std::string presentable(std::string_view text, std::size_t most) {
  std::string out;
  while (!text.empty()) {
    const qutf8_step step = qutf8_next(text);
    if (most-- == 0) return out + "\u2026";
    const bool control = step.scalar < 0x20 || step.scalar == 0x7F || (step.scalar & 0xFFFEU) == 0xFFFEU;
    qutf8_append(out, control ? QUTF8_REPLACEMENT : step.scalar);
    text.remove_prefix(step.length);
  }
  return out;
}

SplitPath splitPath(std::string_view path) noexcept {
  const bool windows = path.starts_with("\\\\") || (path.size() > 2 && path[1] == ':' && path[2] == '\\') ||
                       path.find('/') == std::string_view::npos;
  const std::size_t cut = path.rfind(windows ? '\\' : '/');
  if (cut == std::string_view::npos) return {{}, path};
  return {path.substr(0, cut + 1), path.substr(cut + 1)};
}
