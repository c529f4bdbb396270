#include "msi/property_table.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "msi/package_object.h"

namespace {

std::optional<std::uint32_t> reference(Bytes bytes) noexcept {
  if (bytes.empty()) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = bytes.size(); i > 0; --i) number = number << 8 | std::to_integer<std::uint32_t>(bytes[i - 1]);
  return number;
}

}  // namespace

property_table::property_table(std::unique_ptr<msi_source> pool, std::unique_ptr<msi_source> data,
                               std::unique_ptr<msi_source> rows)
    : pool_(std::move(pool)),
      data_(std::move(data)),
      rows_(std::move(rows)),
      strings_(*pool_, *data_),
      has_strings_(strings_.open()) {}

std::unique_ptr<property_table> property_table::open(compound_file& package) {
  auto pool = package.stream(msi_table_stream_name("_StringPool"));
  auto data = package.stream(msi_table_stream_name("_StringData"));
  if (!pool || !data) return nullptr;
  return std::make_unique<property_table>(std::move(pool), std::move(data),
                                          package.stream(msi_table_stream_name("Property")));
}

// The table's stream holds its columns one after the other: the numbers of all names, then those of all values.
property_result property_table::value(std::string_view name, std::u16string& out) {
  if (!has_strings_) return property_result::unreadable;
  if (!rows_) return property_result::absent;
  const std::uint32_t size = strings_.reference_size();
  const std::uint64_t row_size = std::uint64_t{2} * size;
  if (rows_->size() % row_size != 0) return property_result::unreadable;
  const std::uint64_t rows = rows_->size() / row_size;
  const std::vector<std::uint32_t> wanted = strings_.find(name);
  if (!strings_.readable()) return property_result::unreadable;
  msi_window window(*rows_);
  for (std::uint64_t row = 0; row < rows && !wanted.empty(); ++row) {
    const auto number = reference(window.at(row * size, size));
    if (!number) return property_result::unreadable;
    if (!std::ranges::binary_search(wanted, *number)) continue;
    const auto value = reference(window.at((rows + row) * size, size));
    return value && strings_.text(*value, out) ? property_result::found : property_result::unreadable;
  }
  return property_result::absent;
}
