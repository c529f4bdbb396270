// What an open package holds.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "msi/compound_file.h"
#include "msi/msi_package.h"

class msi_system_path;

class msi_package {
 public:
  msi_package(const qchar* path, std::unique_ptr<compound_file> compound);
  [[nodiscard]] const std::u16string& path() const noexcept { return path_; }
  [[nodiscard]] compound_file& compound() noexcept { return *compound_; }
  // Whether it is an installer's database: its class, and the two streams without which there are no texts.
  [[nodiscard]] bool is_database() const noexcept { return is_database_; }
  // Of the texts; 0 is neutral.
  [[nodiscard]] std::uint32_t code_page() const noexcept { return code_page_; }
  // On Windows, the path under which the system's readers open it, as soon as one has asked (msi_path_winnt.h).
  [[nodiscard]] std::shared_ptr<msi_system_path>& system_path() noexcept { return system_path_; }

 private:
  std::u16string path_;
  std::unique_ptr<compound_file> compound_;
  bool is_database_ = false;
  std::uint32_t code_page_ = 0;
  std::shared_ptr<msi_system_path> system_path_;
};

// The stream of the root storage that holds table or table-like stream `name`: letters, digits, full stop and low line,
// packed in pairs into U+3800..U+47FF, a last single one into U+4800..U+483F, behind MSI_TABLE_MARK. May throw
// std::bad_alloc.
inline constexpr qchar MSI_TABLE_MARK = u'\x4840';
[[nodiscard]] std::u16string msi_table_stream_name(std::string_view name);
