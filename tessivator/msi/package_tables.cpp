#include "msi/package_tables.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "msi/package_object.h"

namespace {

constexpr std::uint32_t type_size = 0x00FF;
constexpr std::uint32_t type_text = 0x0800;
constexpr std::uint32_t type_stream = 0x0900;
constexpr std::uint32_t type_may_be_empty = 0x1000;
constexpr std::uint32_t flipped = 0x8000;

}  // namespace

std::optional<std::uint32_t> package_cell(msi_window& table, std::uint64_t rows, std::uint64_t row,
                                          std::uint32_t before, std::uint32_t width) noexcept {
  const Bytes bytes = table.at(rows * before + row * width, width);
  if (bytes.empty()) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = bytes.size(); i > 0; --i) number = number << 8 | std::to_integer<std::uint32_t>(bytes[i - 1]);
  return number;
}

std::unique_ptr<package_tables> package_tables::open(compound_file& package, std::span<const std::string_view> texts) {
  if (!package.has_terminated_names(MSI_TABLE_MARK) || !package.has_whole_streams(MSI_TABLE_MARK)) return nullptr;
  auto pool = package.stream(msi_table_stream_name("_StringPool"));
  auto data = package.stream(msi_table_stream_name("_StringData"));
  if (!pool || !data) return nullptr;
  auto strings = string_pool::open(std::move(pool), std::move(data), texts);
  if (!strings) return nullptr;
  std::unique_ptr<package_tables> tables(new package_tables(std::move(strings)));
  // An empty table has no stream.
  const auto columns = package.stream(msi_table_stream_name("_Columns"));
  const auto names = package.stream(msi_table_stream_name("_Tables"));
  if (columns && !tables->read_columns(*columns)) return nullptr;
  if (names && !tables->has_columns_for(*names)) return nullptr;
  return tables;
}

bool package_tables::read_columns(msi_source& stream) {
  const std::uint32_t text = strings_->reference_size();
  const std::uint32_t width = 2 * text + 4;
  const std::uint64_t rows = stream.size() / width;
  if (stream.size() % width != 0 || rows > MSI_MOST_COLUMNS) return false;
  rows_.resize(static_cast<std::size_t>(rows));
  msi_window window(stream);
  const auto read = [&](std::uint32_t before, std::uint32_t size, std::uint32_t row::*field) {
    for (std::uint64_t i = 0; i < rows; ++i) {
      const auto cell = package_cell(window, rows, i, before, size);
      if (!cell) return false;
      rows_[static_cast<std::size_t>(i)].*field = *cell;
    }
    return true;
  };
  if (!read(0, text, &row::table) || !read(text, 2, &row::number) || !read(text + 2, text, &row::name) ||
      !read(2 * text + 2, 2, &row::type)) {
    return false;
  }
  std::ranges::sort(rows_, {}, [](const row& r) { return std::tie(r.table, r.number); });
  return are_numbered();
}

bool package_tables::are_numbered() const noexcept {
  std::uint32_t table = 0;
  std::uint32_t number = 0;
  for (const row& r : rows_) {
    number = r.table == table ? number + 1 : 1;
    table = r.table;
    const bool is_numbered = number < flipped && r.number == (flipped | number) && (r.type & flipped) != 0;
    if (!is_numbered || !strings_->has(r.table) || !strings_->has(r.name)) return false;
  }
  return true;
}

bool package_tables::has_columns_for(msi_source& tables) {
  const std::uint32_t text = strings_->reference_size();
  const std::uint64_t rows = tables.size() / text;
  if (tables.size() % text != 0 || rows > MSI_MOST_COLUMNS) return false;
  msi_window window(tables);
  for (std::uint64_t i = 0; i < rows; ++i) {
    const auto name = package_cell(window, rows, i, 0, text);
    if (!name || !std::ranges::binary_search(rows_, *name, {}, &row::table)) return false;
  }
  return true;
}

std::vector<package_column> package_tables::columns(std::uint32_t table) const {
  std::vector<package_column> columns;
  std::uint32_t before = 0;
  for (auto at = std::ranges::lower_bound(rows_, table, {}, &row::table); at != rows_.end(); ++at) {
    const row& r = *at;
    if (r.table != table) break;
    package_column column;
    column.name = r.name;
    column.before = before;
    if ((r.type & type_text) == 0) {
      column.width = (r.type & type_size) <= 2 ? 2 : 4;
    } else if ((r.type & ~(type_may_be_empty | flipped)) == type_stream) {
      column.what = package_column::kind::stream;
      column.width = 2;
    } else {
      column.what = package_column::kind::text;
      column.width = strings_->reference_size();
    }
    before += column.width;
    columns.push_back(column);
  }
  return columns;
}
