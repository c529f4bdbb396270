// What an installer package says of itself beside name, maker and version: its codes, languages and architecture.
#pragma once

#include <string>

#include "common/qlib/qerr.h"
#include "msi/msi_database.h"

// One value, of at most MSI_MAX_TEXT units and up to its first zero.
struct msi_fact {
  msi_result result = MSI_NO_MORE_ITEMS;  // MSI_OK, MSI_NO_MORE_ITEMS (there is no such value), or why it was not read
  std::u16string text;                    // empty unless `result` is MSI_OK
};

struct msi_package_facts {
  // Properties of these names.
  msi_fact product_code;
  msi_fact upgrade_code;
  msi_fact product_language;
  // Of the summary information: the revision number, and the template before and behind its first semicolon.
  msi_fact package_code;
  msi_fact architecture;  // empty: Intel
  msi_fact languages;     // numbers, separated by commas
};

// Reads the facts of an open database. A value that cannot be read leaves the others. QERR_ARG2 or QERR_LOW_MEMORY,
// with nothing written.
[[nodiscard]] qerr_t msi_read_package_facts(msi_handle database, msi_package_facts* facts) noexcept;
