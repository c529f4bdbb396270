#include "msi/msi_signature.h"

#include <memory>

#include "msi/msi_package.h"

qerr_t msi_get_signature_alloc(const qchar* path, std::byte** out, std::uint32_t* length) noexcept {
  if (path == nullptr) return QERR_ARG1;
  std::shared_ptr<msi_package> package;
  const qerr_t code = msi_package_open(path, &package);
  return code == QERR_LOW_MEMORY ? code : msi_package_get_signature_alloc(package.get(), out, length);
}
