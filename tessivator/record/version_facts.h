// What the version resources of an image say: every string table, and the fixed file version. For readers who want more
// than the record's seven strings (inv_version.h), which are chosen by other rules.
//
// Format: VS_VERSIONINFO of the Windows resource format, described in the source.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "blib/blib_bin.h"

// Tables of one file, and values of one table. What lies beyond is counted under "version_tables_cut" and
// "version_values_cut".
inline constexpr std::size_t RECORD_MOST_VERSION_TABLES = 64;
inline constexpr std::size_t RECORD_MOST_VERSION_VALUES = 64;
// Units of a name or a value. A value with a longer one is left out and counted under "version_value_too_long".
inline constexpr std::size_t RECORD_MOST_VERSION_UNITS = 4000;

struct record_version_value {
  std::u16string name;
  std::u16string value;  // as it stands there, to its first zero: blanks and lone surrogates included
};

struct record_version_table {
  std::uint16_t language = 0;
  std::uint16_t code_page = 0;
  std::vector<record_version_value> values;
};

// What was wrong or left out, as a short code, and how often.
struct record_problem {
  std::string_view code;  // of static storage
  std::uint64_t count = 1;
};

struct record_version_facts {
  std::optional<std::uint64_t> file_version;  // dwFileVersionMS and LS; of several resources the first that has one
  std::vector<record_version_table> tables;   // in the order of the resources and of the tables in them
  // Also: "version_tree_damaged" (the resources could not all be visited), "version_not_readable" (a resource without
  // the root block), "version_block_damaged" (a block that is shorter than its header, longer than what holds it, or
  // without a whole key: what can be read of it is), "version_table_key" (a table whose key has not the eight digits is
  // left out), "version_fixed_damaged".
  std::vector<record_problem> problems;
};

// Adds what one version resource says. At most 64 KiB of it count, more than a sound one can have. May throw
// std::bad_alloc.
void record_add_version(Bytes resource, record_version_facts& facts);

// Adds what all version resources of an image say; an image without any has none. Damage is a problem in `facts` and no
// error. QERR_LOW_MEMORY, or the code of a read of the file that failed; `facts` then holds what was found before.
[[nodiscard]] qerr_t record_get_version_facts(blib_bin* image, record_version_facts& facts) noexcept;
