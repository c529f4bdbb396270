// The fixtures' tables of what must be found, and the certificate files that they name.
#pragma once

#include "sgn/support.h"
#include "support/fixture_table.h"

using Row = fixture_row;

// A list of stems as a table writes it.
inline Names list_of(const std::string& cell) { return cell.empty() ? Names() : fixture_cells(cell, ','); }

// Every name has its file in `folder`, byte for byte as openssl writes the certificate.
inline void expect_certificate_files(const fs::path& folder, const Names& names) {
  for (const std::string& name : names) {
    const std::string expected = file_text(fixture("expected/certificates/" + name + ".cer"));
    EXPECT_FALSE(expected.empty()) << name;
    EXPECT_EQ(file_text(folder / (name + ".cer")), expected) << name;
  }
}
