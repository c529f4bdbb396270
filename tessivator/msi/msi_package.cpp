#include "msi/msi_package.h"

#include <new>
#include <optional>
#include <utility>

#include "common/qlib/qbytes.h"
#include "common/qlib/qmem.h"
#include "msi/msi_signature.h"
#include "msi/package_object.h"

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

qerr_t open_source(const qchar* path, const std::shared_ptr<msi_source>& file, std::shared_ptr<msi_package>& package) {
  auto compound = compound_file::open(file);
  if (!compound) return QERR_NOT_FOUND;
  package = std::make_shared<msi_package>(path, std::move(compound));
  return QERR_OK;
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

qerr_t msi_package_open(const qchar* path, std::shared_ptr<msi_package>* package) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (package == nullptr) return QERR_ARG2;
  return open_source(path, msi_open_file(path), *package);
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}

qerr_t msi_package_open_file(const qchar* path, qfile_t file, std::shared_ptr<msi_package>* package) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (file == QFILE_INVALID) return QERR_ARG2;
  if (package == nullptr) return QERR_ARG3;
  return open_source(path, msi_borrow_file(file), *package);
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}

qerr_t msi_get_signature_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept {
  if (path == nullptr) return QERR_ARG1;
  std::shared_ptr<msi_package> package;
  const qerr_t code = msi_package_open(path, &package);
  return code == QERR_LOW_MEMORY ? code : msi_package_get_signature_alloc(package.get(), out, length);
}
