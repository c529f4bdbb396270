// The fixtures' tables of what must be found, and the certificate files that they name.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "sgn/support.h"

using Row = std::map<std::string, std::string>;

inline Names split(const std::string& line, char separator) {
  Names parts{""};
  for (const char one : line) {
    if (one == separator) {
      parts.emplace_back();
    } else {
      parts.back() += one;
    }
  }
  return parts;
}

// The rows of a tab-separated table by the names in its heading line.
inline std::vector<Row> table(std::string_view name) {
  std::istringstream in(read_bytes(fixture(name)));
  std::vector<Row> rows;
  Names heading;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const Names cells = split(line, '\t');
    if (heading.empty()) {
      heading = cells;
      continue;
    }
    Row row;
    for (std::size_t i = 0; i < heading.size(); ++i) row[heading.at(i)] = cells.at(i);
    rows.push_back(row);
  }
  return rows;
}

// A list of stems as a table writes it.
inline Names list_of(const std::string& cell) { return cell.empty() ? Names() : split(cell, ','); }

// Every name has its file in `folder`, byte for byte as openssl writes the certificate.
inline void expect_certificate_files(const fs::path& folder, const Names& names) {
  for (const std::string& name : names) {
    const std::string expected = read_bytes(fixture("expected/certificates") / (name + ".cer"));
    EXPECT_FALSE(expected.empty()) << name;
    EXPECT_EQ(read_bytes(folder / (name + ".cer")), expected) << name;
  }
}
