// The Property table of an open package: names and values.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "msi/package_tables.h"

enum class property_result : std::uint8_t { found, absent, unreadable };

// The text of string `number`; number 0 is the empty text. Cut at MSI_MAX_TEXT units, never inside a pair. False for a
// number that is not in use and for bytes that cannot be read. May throw std::bad_alloc.
[[nodiscard]] bool property_text(string_pool& strings, std::uint32_t number, std::u16string& out);

class property_table {
 public:
  // Null when `package` has no sound tables. May throw std::bad_alloc, as all of these.
  [[nodiscard]] static std::unique_ptr<property_table> open(compound_file& package);
  [[nodiscard]] std::uint32_t code_page() const noexcept { return tables_->strings().code_page(); }
  // Whether there is such a table, with the columns `Property` and `Value`.
  [[nodiscard]] bool exists() const noexcept { return row_width_ != 0; }
  // The value of property `name`, which the format makes ASCII; at most MSI_MAX_TEXT units. Unreadable when the table's
  // size is not a whole number of rows, or the value cannot be read.
  [[nodiscard]] property_result value(std::string_view name, std::u16string& out);

 private:
  explicit property_table(std::unique_ptr<package_tables> tables) noexcept : tables_(std::move(tables)) {}
  [[nodiscard]] bool find_columns();

  std::unique_ptr<package_tables> tables_;
  std::unique_ptr<msi_source> rows_;  // null: the table is empty
  package_column name_;
  package_column value_;
  std::uint32_t row_width_ = 0;
};
