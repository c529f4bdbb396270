// The Property table of an open package: names and values.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "msi/compound_file.h"
#include "msi/string_pool.h"

enum class property_result : std::uint8_t { found, absent, unreadable };

class property_table {
 public:
  // Over the streams of string pool, string bytes and, null when the package has none, Property table. May throw
  // std::bad_alloc, as all of these.
  property_table(std::unique_ptr<msi_source> pool, std::unique_ptr<msi_source> data, std::unique_ptr<msi_source> rows);
  // Null when `package` has no string pool.
  [[nodiscard]] static std::unique_ptr<property_table> open(compound_file& package);
  // The value of property `name`, which the format makes ASCII. Unreadable when the header of the pool is cut, the
  // table's size is not a whole number of rows, or the value's text cannot be read.
  [[nodiscard]] property_result value(std::string_view name, std::u16string& out);

 private:
  std::unique_ptr<msi_source> pool_;
  std::unique_ptr<msi_source> data_;
  std::unique_ptr<msi_source> rows_;
  string_pool strings_;
  bool has_strings_;
};
