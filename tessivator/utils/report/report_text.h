// Values as the formats of this program need them. All text is UTF-8; everything appends to `out`.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "utils/report/report_record.h"

// 64 lower-case hexadecimal digits; false for anything else.
[[nodiscard]] bool hexToBytes(std::string_view hex, CertificateName& bytes) noexcept;
[[nodiscard]] std::string bytesToHex(std::span<const std::uint8_t> bytes);
// Upper- or lower-case hexadecimal digits, an even number of them, as base64 without padding.
void appendBase64OfHex(std::string& out, std::string_view hex);

// Inside an element or an attribute.
void appendXml(std::string& out, std::string_view text);
// As a JSON string with its quotes that may also stand inside an HTML script element.
void appendJson(std::string& out, std::string_view text);
// As a cell of RFC 4180 that no spreadsheet takes for a formula, also where it separates cells by semicolons or tabs.
void appendCsv(std::string& out, std::string_view text);

// What a certificate says of itself, made fit for XML: controls and what is no character become U+FFFD, and of a text
// longer than `most` characters the front remains.
[[nodiscard]] std::string presentable(std::string_view text, std::size_t most);

// The parts of a path as this or the other system writes them: the folder with its separator, and the name.
struct SplitPath {
  std::string_view folder;
  std::string_view name;
};
[[nodiscard]] SplitPath splitPath(std::string_view path) noexcept;
