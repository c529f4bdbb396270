// The fixtures, and the one reader of the tables of what they must yield: tab-separated, with a heading line.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "common/qlib/qstr.h"

inline std::string fixture_path(const std::string& relative) {
  const char* const folder = std::getenv("TESSIVATOR_FIXTURES");
  return std::string(folder != nullptr ? folder : "fixtures") + "/" + relative;
}

// The path in the platform's own form, as the product meets it.
inline std::u16string fixture_wide(const std::string& relative) {
  return std::filesystem::path(fixture_path(relative)).make_preferred().u16string();
}

// None for an empty line.
inline std::vector<std::string> fixture_cells(const std::string& line, char separator) {
  std::vector<std::string> cells(line.empty() ? 0 : 1);
  for (const char c : line) {
    if (c == separator)
      cells.emplace_back();
    else if (c != '\r')
      cells.back().push_back(c);
  }
  return cells;
}

// A cell's text: \uXXXX stands for one unit.
inline std::u16string fixture_text(const std::string& cell) {
  std::u16string text = qstr_to_wide(cell);
  for (std::size_t at = 0; (at = text.find(u"\\u", at)) != std::u16string::npos; ++at) {
    const std::string digits = qstr_to_utf8(text.substr(at + 2, 4));
    text.replace(at, 6, 1, static_cast<char16_t>(std::stoul(digits, nullptr, 16)));
  }
  return text;
}

// Cells by column name.
struct fixture_row : std::map<std::string, std::string> {
  [[nodiscard]] std::u16string wide(const char* column) const { return fixture_text(at(column)); }
  // \u00XX stands for one byte.
  [[nodiscard]] std::string octets(const char* column) const {
    std::string bytes;
    for (const char16_t unit : wide(column)) bytes.push_back(static_cast<char>(unit));
    return bytes;
  }
  // Decimal, or hexadecimal after 0x.
  template <class T = std::uint32_t>
  [[nodiscard]] T number(const char* column) const {
    return static_cast<T>(std::stoull(at(column), nullptr, 0));
  }
};

// The rows of a table below tests/; no table is empty.
inline std::vector<fixture_row> fixture_rows(const std::string& file) {
  std::ifstream in(fixture_path("../" + file), std::ios::binary);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> heading = fixture_cells(line, '\t');
  std::vector<fixture_row> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> values = fixture_cells(line, '\t');
    EXPECT_LE(values.size(), heading.size()) << file << ": " << line;
    auto& row = rows.emplace_back();
    for (std::size_t i = 0; i < heading.size() && i < values.size(); ++i) row[heading[i]] = values[i];
  }
  EXPECT_FALSE(rows.empty()) << file;
  return rows;
}

inline std::vector<fixture_row> fixture_table(const std::string& name) {
  return fixture_rows("fixtures/expected/" + name + ".tsv");
}

// The bytes of any file; empty when there is none.
inline std::string file_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::byte> fixture_bytes(const std::string& relative) {
  const std::string text = file_text(fixture_path(relative));
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

// The text of a file in UTF-16LE after its byte-order mark; "?" when the mark is missing.
inline std::string utf16_text(const std::filesystem::path& path) {
  const std::string bytes = file_text(path);
  if (!bytes.starts_with("\xFF\xFE") || bytes.size() % 2 != 0) return "?";
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), bytes.size());
  return qstr_to_utf8(text.substr(1));
}
