#include "msi/package_object.h"

#include <algorithm>
#include <optional>

#include "common/qlib/qbytes.h"
#include "msi/code_page.h"

namespace {

// The code of one character of a table's name; nothing for any other character.
std::optional<std::uint32_t> name_code(char c) noexcept {
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (c >= 'A' && c <= 'Z') return static_cast<std::uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'z') return static_cast<std::uint32_t>(c - 'a' + 36);
  if (c == '.') return 62;
  if (c == '_') return 63;
  return std::nullopt;
}

}  // namespace

// {000C1084-0000-0000-C000-000000000046}: an installer database; 1082 a transform and 1086 a patch, in the same form.
bool msi_package::is_database() const noexcept {
  constexpr std::uint64_t behind_first_byte = 0x00000000'00000C10;
  constexpr std::uint64_t second_half = 0x46000000'000000C0;
  const compound_file::class_id& id = compound_->root_class();
  const auto kind = std::to_integer<unsigned>(id[0]);
  return (kind == 0x84 || kind == 0x82 || kind == 0x86) &&
         (qbytes_le<std::uint64_t>(id, 0).value_or(0) >> 8) == behind_first_byte &&
         qbytes_le<std::uint64_t>(id, 8) == second_half;
}

msi_result msi_package::read_summary(std::uint32_t number, std::u16string& text) {
  constexpr std::uint32_t bytes_a_unit = 8;  // no code page takes more
  if (!summary_) {
    auto summary = std::make_unique<summary_stream>();
    summary_result_ = summary->open(*compound_);
    summary_ = std::move(summary);
  }
  std::vector<std::byte> bytes;
  auto result = summary_result_;
  if (result == summary_stream::result::found) result = summary_->text(number, bytes_a_unit * MSI_MAX_TEXT, bytes);
  if (result == summary_stream::result::absent) return MSI_NO_MORE_ITEMS;
  if (result == summary_stream::result::damaged) return MSI_FUNCTION_FAILED;
  text = code_page_decode(summary_->code_page(), bytes);
  text.resize(std::min(text.find(u'\0'), text.size()));
  text.resize(msi_cut_length(text.data(), text.size()));
  return MSI_OK;
}

msi_result msi_copy_text(std::u16string_view text, qchar* buffer, std::uint32_t* size) noexcept {
  const std::uint32_t capacity = buffer == nullptr ? 0 : *size;
  *size = static_cast<std::uint32_t>(text.size());
  if (capacity > 0) {
    const std::size_t count = std::min<std::size_t>(text.size(), capacity - 1);
    text.copy(buffer, count);
    buffer[count] = u'\0';
  }
  return buffer == nullptr || text.empty() || text.size() < capacity ? MSI_OK : MSI_MORE_DATA;
}

std::u16string msi_table_stream_name(std::string_view name) {
  std::u16string text(1, MSI_TABLE_MARK);
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto first = name_code(name[i]);
    const auto second = i + 1 < name.size() ? name_code(name[i + 1]) : std::nullopt;
    if (!first) {
      text.push_back(static_cast<qchar>(name[i]));
    } else if (!second) {
      text.push_back(static_cast<qchar>(0x4800 + *first));
    } else {
      text.push_back(static_cast<qchar>(0x3800 + *first + (*second << 6)));
      ++i;
    }
  }
  return text;
}
