#include "msi/msi_package.h"

#include <new>
#include <utility>

#include "msi/package_object.h"

namespace {

qerr_t open_source(const qchar* path, const std::shared_ptr<msi_source>& file, std::shared_ptr<msi_package>& package) {
  auto compound = compound_file::open(file);
  if (!compound) return QERR_NOT_FOUND;
  package = std::make_shared<msi_package>(path, std::move(compound));
  return QERR_OK;
}

}  // namespace

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
