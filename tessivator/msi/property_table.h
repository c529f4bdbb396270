// The Property table of an open package: names and values.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "msi/compound_file.h"

// The stream of the root storage that holds table or table-like stream `name`: letters, digits, full stop and low line,
// packed in pairs into U+3800..U+47FF, a last single one into U+4800..U+483F, behind U+4840. In UTF-8. May throw
// std::bad_alloc.
[[nodiscard]] std::string msi_table_stream_name(std::string_view name);

enum class property_result : std::uint8_t { found, absent, unreadable };

class property_table {
 public:
  // Opens the package whose bytes are `file` (null is allowed). Null when it is no installer package (its class or its
  // string pool is missing) or is damaged. May throw std::bad_alloc, as all of these.
  [[nodiscard]] static std::unique_ptr<property_table> open(const std::shared_ptr<msi_source>& file);
  // The value of property `name`, which the format makes ASCII.
  [[nodiscard]] property_result value(std::string_view name, std::u16string& out);
  // The same over any streams of string pool, string bytes and Property table (null: none). Unreadable when the header
  // of the pool is cut or the table's size is not a whole number of rows.
  [[nodiscard]] static property_result lookup(msi_source& pool, msi_source& data, msi_source* table,
                                              std::string_view name, std::u16string& out);

 private:
  std::unique_ptr<compound_file> file_;
  std::unique_ptr<msi_source> pool_;
  std::unique_ptr<msi_source> data_;
  std::unique_ptr<msi_source> table_;  // null: the package has no properties
};
