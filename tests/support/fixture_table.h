// The tables of what the fixtures must yield: tab-separated, with a heading line.
#pragma once

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "common/qlib/qstr.h"

inline std::string fixture_path(const std::string& relative) {
  const char* const folder = std::getenv("TESSIVATOR_FIXTURES");
  return std::string(folder != nullptr ? folder : "fixtures") + "/" + relative;
}

// The path in the platform's own form, as the product meets it.
inline std::u16string fixture_wide(const std::string& relative) {
  std::u16string path = qstr_to_wide(fixture_path(relative));
  for (qchar& unit : path) {
    if (unit == u'/') unit = qpath_native_separator();
  }
  return path;
}

// Rows by column name; empty when the table is missing, which the caller checks.
inline std::vector<std::map<std::string, std::string>> fixture_table(const std::string& name) {
  const auto cells = [](std::string line) {
    if (line.ends_with('\r')) line.pop_back();
    std::vector<std::string> out(1);
    for (const char c : line) {
      if (c == '\t')
        out.emplace_back();
      else
        out.back().push_back(c);
    }
    return out;
  };
  std::ifstream in(fixture_path("expected/" + name + ".tsv"), std::ios::binary);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> heading = cells(line);
  std::vector<std::map<std::string, std::string>> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> values = cells(line);
    auto& row = rows.emplace_back();
    for (std::size_t i = 0; i < heading.size() && i < values.size(); ++i) row[heading[i]] = values[i];
  }
  return rows;
}

inline std::vector<std::byte> fixture_bytes(const std::string& relative) {
  std::ifstream in(fixture_path(relative), std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::byte> bytes(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) bytes[i] = static_cast<std::byte>(text[i]);
  return bytes;
}
