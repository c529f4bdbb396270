#include "msi/property_table.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/qlib/qstr.h"
#include "msi/code_page.h"
#include "msi/msi_database.h"
#include "msi/package_object.h"

namespace {

using namespace std::string_view_literals;

constexpr std::string_view table_name = "Property";
constexpr std::string_view value_name = "Value";
// What every package is asked for.
constexpr std::array texts{table_name,         value_name,      "ProductName"sv, "Manufacturer"sv,
                           "ProductVersion"sv, "ProductCode"sv, "UpgradeCode"sv, "ProductLanguage"sv};

std::u16string number_text(std::uint32_t cell, std::uint32_t width) {
  if (cell == 0) return {};
  const std::int64_t flipped = width == 2 ? 0x8000 : 0x80000000;
  return qstr_to_wide(std::to_string(cell - flipped));
}

}  // namespace

bool property_text(string_pool& strings, std::uint32_t number, std::u16string& out) {
  if (number == 0) {
    out.clear();
    return true;
  }
  // No code page takes more bytes for a unit; what these make is cut to the bound.
  constexpr std::uint64_t bytes_a_unit = 8;
  std::vector<std::byte> bytes;
  if (!strings.read(number, bytes_a_unit * MSI_MAX_TEXT, bytes)) return false;
  out = code_page_decode(strings.code_page(), bytes);
  out.resize(msi_cut_length(out.data(), out.size()));
  return true;
}

std::unique_ptr<property_table> property_table::open(compound_file& package) {
  auto tables = package_tables::open(package, texts);
  if (!tables) return nullptr;
  std::unique_ptr<property_table> properties(new property_table(std::move(tables)));
  if (!properties->find_columns()) return nullptr;
  properties->rows_ = package.stream(msi_table_stream_name(table_name));
  return properties;
}

// False when the names cannot be read.
bool property_table::find_columns() {
  std::vector<std::uint32_t> tables;  // a string that the pool has twice names a table by one of its numbers
  std::vector<std::uint32_t> values;
  if (!tables_->strings().find(table_name, tables) || !tables_->strings().find(value_name, values)) return false;
  for (const std::uint32_t table : tables) {
    const std::vector<package_column> columns = tables_->columns(table);
    const auto with = [&](const std::vector<std::uint32_t>& names) {
      return std::ranges::find_if(columns, [&](const package_column& c) {
        return std::ranges::binary_search(names, c.name) && c.what != package_column::kind::stream;
      });
    };
    const auto name = with(tables);
    const auto value = with(values);
    if (name == columns.end() || value == columns.end() || name->what != package_column::kind::text) continue;
    name_ = *name;
    value_ = *value;
    row_width_ = columns.back().before + columns.back().width;
  }
  return true;
}

property_result property_table::value(std::string_view name, std::u16string& out) {
  if (!exists() || !rows_) return property_result::absent;
  if (rows_->size() % row_width_ != 0) return property_result::unreadable;
  const std::uint64_t rows = rows_->size() / row_width_;
  std::vector<std::uint32_t> wanted;
  if (!tables_->strings().find(name, wanted)) return property_result::unreadable;
  msi_window window(*rows_);
  for (std::uint64_t row = 0; row < rows && !wanted.empty(); ++row) {
    const auto number = package_cell(window, rows, row, name_.before, name_.width);
    if (!number) return property_result::unreadable;
    if (!std::ranges::binary_search(wanted, *number)) continue;
    const auto cell = package_cell(window, rows, row, value_.before, value_.width);
    if (!cell) return property_result::unreadable;
    if (value_.what == package_column::kind::text) {
      return property_text(tables_->strings(), *cell, out) ? property_result::found : property_result::unreadable;
    }
    out = number_text(*cell, value_.width);
    return property_result::found;
  }
  return property_result::absent;
}
