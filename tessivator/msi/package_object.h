// What an open package holds.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "msi/compound_file.h"
#include "msi/msi_package.h"

class msi_system_path;

class msi_package {
 public:
  msi_package(const qchar* path, std::unique_ptr<compound_file> compound)
      : path_(path), compound_(std::move(compound)) {}
  [[nodiscard]] const std::u16string& path() const noexcept { return path_; }
  [[nodiscard]] compound_file& compound() noexcept { return *compound_; }
  // Whether its class is that of an installer's database.
  [[nodiscard]] bool is_database() const noexcept;
  // On Windows, the path under which the system's readers open it, as soon as one has asked (msi_path_winnt.h).
  [[nodiscard]] std::shared_ptr<msi_system_path>& system_path() noexcept { return system_path_; }

 private:
  std::u16string path_;
  std::unique_ptr<compound_file> compound_;
  std::shared_ptr<msi_system_path> system_path_;
};

// The stream of the root storage that holds table or table-like stream `name`: letters, digits, full stop and low line,
// packed in pairs into U+3800..U+47FF, a last single one into U+4800..U+483F, behind MSI_TABLE_MARK. May throw
// std::bad_alloc.
inline constexpr qchar MSI_TABLE_MARK = u'\x4840';
[[nodiscard]] std::u16string msi_table_stream_name(std::string_view name);
