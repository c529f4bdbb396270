// Product properties of an installer package.
#pragma once

#include <memory>
#include <string>

#include "msi/msi_database.h"
#include "msi/package_facts.h"

// An open installer package. Results are the numbers of Windows Installer; failures are logged where they occur.
class MsiProductInfoExtractor {
 public:
  // Opens the package at `path` read-only. On failure throws the code of the installer as a std::uint32_t.
  explicit MsiProductInfoExtractor(const std::u16string& path);
  // The same for an open package (null: the file is none).
  MsiProductInfoExtractor(const std::u16string& path, const std::shared_ptr<msi_package>& package);
  MsiProductInfoExtractor(const MsiProductInfoExtractor&) = delete;
  MsiProductInfoExtractor& operator=(const MsiProductInfoExtractor&) = delete;
  virtual ~MsiProductInfoExtractor();

  // The value of property `name`, up to its first zero unit and never more than 4,000 units. Returns MSI_OK or the
  // installer's code (MSI_NO_MORE_ITEMS: no such property); `value` is written only on MSI_OK. Throws std::bad_alloc
  // when memory runs out.
  [[nodiscard]] msi_result getPropertyValueFromMsi(std::u16string name, std::u16string& value);

  // What the package says beside its product. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] msi_package_facts facts();

  // Asks for the length in units of field 1 of a fetched record: MSI_MORE_DATA with the length in `size`, or, for
  // an empty value, MSI_OK.
  [[nodiscard]] msi_result getBufSizeInFetchedRecord(msi_handle record, std::uint32_t& size);

 private:
  msi_handle database_ = 0;
  std::u16string path_;
};
