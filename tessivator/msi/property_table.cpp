#include "msi/property_table.h"

#include <array>
#include <optional>
#include <utility>

#include "common/qlib/qbytes.h"
#include "msi/string_pool.h"

namespace {

// {000C1084-0000-0000-C000-000000000046}: an installer database; 1082 a transform and 1086 a patch, in the same form.
bool is_installer_class(const compound_file::class_id& id) noexcept {
  compound_file::class_id expected{0x84, 0x10, 0x0C, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};
  for (const std::uint8_t kind : std::array<std::uint8_t, 3>{0x84, 0x82, 0x86}) {
    expected[0] = kind;
    if (id == expected) return true;
  }
  return false;
}

// The code of one character of a table's name; nothing for any other character.
std::optional<std::uint32_t> name_code(char c) noexcept {
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (c >= 'A' && c <= 'Z') return static_cast<std::uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'z') return static_cast<std::uint32_t>(c - 'a' + 36);
  if (c == '.') return 62;
  if (c == '_') return 63;
  return std::nullopt;
}

// UTF-8 of a unit from U+0800 on.
void append_utf8(std::string& text, std::uint32_t unit) {
  text.push_back(static_cast<char>(0xE0U | unit >> 12));
  text.push_back(static_cast<char>(0x80U | (unit >> 6 & 0x3FU)));
  text.push_back(static_cast<char>(0x80U | (unit & 0x3FU)));
}

std::optional<std::uint32_t> reference(Bytes bytes) noexcept {
  if (bytes.empty()) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = bytes.size(); i > 0; --i) number = number << 8 | std::to_integer<std::uint32_t>(bytes[i - 1]);
  return number;
}

}  // namespace

std::string msi_table_stream_name(std::string_view name) {
  std::string text;
  append_utf8(text, 0x4840);
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto first = name_code(name[i]);
    if (!first) {
      text.push_back(name[i]);
      continue;
    }
    const auto second = i + 1 < name.size() ? name_code(name[i + 1]) : std::nullopt;
    append_utf8(text, second ? 0x3800 + *first + (*second << 6) : 0x4800 + *first);
    if (second) ++i;
  }
  return text;
}

std::unique_ptr<property_table> property_table::open(const std::shared_ptr<msi_source>& file) {
  auto package = std::make_unique<property_table>();
  package->file_ = compound_open(file);
  if (!package->file_ || !is_installer_class(package->file_->root_class())) return nullptr;
  package->pool_ = package->file_->stream(msi_table_stream_name("_StringPool"));
  package->data_ = package->file_->stream(msi_table_stream_name("_StringData"));
  if (!package->pool_ || !package->data_) return nullptr;
  package->table_ = package->file_->stream(msi_table_stream_name("Property"));
  return package;
}

property_result property_table::value(std::string_view name, std::u16string& out) {
  return lookup(*pool_, *data_, table_.get(), name, out);
}

// The table's stream holds its columns one after the other: the numbers of all names, then those of all values.
property_result property_table::lookup(msi_source& pool, msi_source& data, msi_source* table, std::string_view name,
                                       std::u16string& out) {
  string_pool strings(pool, data);
  if (!strings.open()) return property_result::unreadable;
  if (table == nullptr) return property_result::absent;
  const std::uint32_t size = strings.reference_size();
  const std::uint64_t row_size = std::uint64_t{2} * size;
  if (table->size() % row_size != 0) return property_result::unreadable;
  const std::uint64_t rows = table->size() / row_size;
  const auto wanted = strings.find(name);
  if (!wanted) return property_result::absent;
  msi_window window(*table);
  for (std::uint64_t row = 0; row < rows; ++row) {
    const auto number = reference(window.at(row * size, size));
    if (!number) return property_result::unreadable;
    if (*number != *wanted) continue;
    const auto value = reference(window.at((rows + row) * size, size));
    return value && strings.text(*value, out) ? property_result::found : property_result::unreadable;
  }
  return property_result::absent;
}
