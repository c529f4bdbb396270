#include "msi/msi_database.h"

#include "common/qlib/qreplaceable.h"
#include "common/qlib/qsys.h"

namespace {

qreplaceable<const msi_interface> replaceable_interface;

const msi_interface& current() noexcept { return replaceable_interface.get(msi_platform_interface()); }

}  // namespace

void msi_set_interface(const msi_interface* replacement) noexcept { replaceable_interface.replace(replacement); }

msi_result msi_open_database(const qchar* path, msi_handle* database) noexcept {
  if (path == nullptr || database == nullptr) return MSI_INVALID_PARAMETER;
  return current().open_database(path, database);
}

msi_result msi_database_open_view(msi_handle database, const qchar* query, msi_handle* view) noexcept {
  if (query == nullptr || view == nullptr) return MSI_INVALID_PARAMETER;
  return current().open_view(database, query, view);
}

msi_result msi_view_execute(msi_handle view) noexcept { return current().execute(view); }

msi_result msi_view_fetch(msi_handle view, msi_handle* record) noexcept {
  if (record == nullptr) return MSI_INVALID_PARAMETER;
  return current().fetch(view, record);
}

msi_result msi_record_get_string(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  if (size == nullptr) return MSI_INVALID_PARAMETER;
  return current().get_string(record, field, buffer, size);
}

msi_result msi_close_handle(msi_handle handle) noexcept { return handle == 0 ? MSI_OK : current().close(handle); }

std::uint32_t msi_last_system_error() noexcept { return qsys_last_error(); }
