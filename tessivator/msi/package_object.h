// What an open package holds.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "msi/compound_file.h"
#include "msi/msi_database.h"
#include "msi/msi_package.h"
#include "msi/summary_stream.h"

class msi_system_path;

class msi_package {
 public:
  msi_package(const qchar* path, std::unique_ptr<compound_file> compound)
      : path_(path), compound_(std::move(compound)) {}
  [[nodiscard]] const std::u16string& path() const noexcept { return path_; }
  [[nodiscard]] compound_file& compound() noexcept { return *compound_; }
  // Whether its class is that of an installer's database.
  [[nodiscard]] bool is_database() const noexcept;
  // Gets text `number` of the summary information, which is looked at when first asked for, as far as the first zero
  // and at most MSI_MAX_TEXT units of it. MSI_OK, MSI_NO_MORE_ITEMS, MSI_FUNCTION_FAILED. May throw std::bad_alloc.
  [[nodiscard]] msi_result read_summary(std::uint32_t number, std::u16string& text);
  // Whether the installer may be asked for such a text.
  [[nodiscard]] bool has_plain_summary() const noexcept { return summary_ && summary_->is_plain(); }
  // On Windows, the path under which the system's readers open it, as soon as one has asked (msi_path_winnt.h).
  [[nodiscard]] std::shared_ptr<msi_system_path>& system_path() noexcept { return system_path_; }

 private:
  std::u16string path_;
  std::unique_ptr<compound_file> compound_;
  std::unique_ptr<summary_stream> summary_;
  summary_stream::result summary_result_ = summary_stream::result::absent;
  std::shared_ptr<msi_system_path> system_path_;
};

// Copies `text` as msi_record_get_string does. A buffer that is too small gets as much as fits, with a terminator. An
// empty text fits even into no room at all, as the installer has it.
[[nodiscard]] msi_result msi_copy_text(std::u16string_view text, qchar* buffer, std::uint32_t* size) noexcept;

// The stream of the root storage that holds table or table-like stream `name`: letters, digits, full stop and low line,
// packed in pairs into U+3800..U+47FF, a last single one into U+4800..U+483F, behind MSI_TABLE_MARK. May throw
// std::bad_alloc.
inline constexpr qchar MSI_TABLE_MARK = u'\x4840';
[[nodiscard]] std::u16string msi_table_stream_name(std::string_view name);
