// The tables of an installer's database: its texts, and where each column of a table lies.
//
// _Tables has one column, the tables' names. _Columns has four: table, number (from 1), name, type. A table's stream
// holds its columns one after the other. A text is its number in the string pool; a number is stored with its highest
// bit flipped, and 0 is no value. Type: bits 0 to 7 width of a number; with bit 11 a text, or, when bit 8 alone is with
// it, a stream (two bytes).
#pragma once

#include <optional>

#include "msi/compound_file.h"
#include "msi/string_pool.h"

// In all tables together; the installer's own packages have some thousand.
inline constexpr std::uint32_t MSI_MOST_COLUMNS = 65536;

struct package_column {
  enum class kind : std::uint8_t { text, number, stream } what = kind::number;
  std::uint32_t name = 0;    // the number of its text
  std::uint32_t width = 0;   // in bytes
  std::uint32_t before = 0;  // the width of all columns before it
};

class package_tables {
 public:
  // Null when there are no texts, a table's stream is not whole, or what describes the tables is damaged: a stream's
  // name without its end, a name that is no string, a table without columns, columns that are not numbered from 1 on,
  // or too many. `texts` as in string_pool. May throw std::bad_alloc, as all of these.
  [[nodiscard]] static std::unique_ptr<package_tables> open(compound_file& package,
                                                            std::span<const std::string_view> texts);
  [[nodiscard]] string_pool& strings() noexcept { return *strings_; }
  // The columns of the table whose name is string `table`, in order; none when there is no such table.
  [[nodiscard]] std::vector<package_column> columns(std::uint32_t table) const;

 private:
  struct row {
    std::uint32_t table = 0;
    std::uint32_t number = 0;
    std::uint32_t name = 0;
    std::uint32_t type = 0;
  };

  explicit package_tables(std::unique_ptr<string_pool> strings) noexcept : strings_(std::move(strings)) {}
  [[nodiscard]] bool read_columns(msi_source& stream);
  [[nodiscard]] bool are_numbered() const noexcept;
  [[nodiscard]] bool has_columns_for(msi_source& tables);

  std::unique_ptr<string_pool> strings_;
  std::vector<row> rows_;  // by table and number
};

// The number of `width` bytes in `column` of row `row`, as stored, of a table with `rows` rows; nothing when it cannot
// be read.
[[nodiscard]] std::optional<std::uint32_t> package_cell(msi_window& table, std::uint64_t rows, std::uint64_t row,
                                                        std::uint32_t before, std::uint32_t width) noexcept;
