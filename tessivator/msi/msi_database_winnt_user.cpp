// The installer's database interface, found at run time: hosts without it must still load this library. The search is
// kept to the system's own folder, so that no msi.dll beside the host or in its working folder is taken for it.
#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "common/qlib/qsys_winnt_user.h"
#include "msi/msi_database.h"
#include "msi/msi_path_winnt.h"
#include "msi/package_object.h"
#include "msi/package_tables.h"

namespace {

struct installer {
  using open_database_fn = UINT(WINAPI*)(const wchar_t*, const wchar_t*, msi_handle*);
  using open_view_fn = UINT(WINAPI*)(msi_handle, const wchar_t*, msi_handle*);
  using execute_fn = UINT(WINAPI*)(msi_handle, msi_handle);
  using fetch_fn = UINT(WINAPI*)(msi_handle, msi_handle*);
  using get_string_fn = UINT(WINAPI*)(msi_handle, UINT, wchar_t*, DWORD*);
  using close_fn = UINT(WINAPI*)(msi_handle);

  open_database_fn open_database = nullptr;
  open_view_fn open_view = nullptr;
  execute_fn execute = nullptr;
  fetch_fn fetch = nullptr;
  get_string_fn get_string = nullptr;
  close_fn close = nullptr;
  msi_result missing = MSI_OK;  // why the interface cannot be used

  installer() noexcept;
};

template <class Function>
bool find(HMODULE module, const char* name, Function& out) noexcept {
  out = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  return out != nullptr;
}

// Kept for the life of the process: handles may be open at any time.
installer::installer() noexcept {
  const HMODULE module = LoadLibraryExW(L"msi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module != nullptr && find(module, "MsiOpenDatabaseW", open_database) &&
      find(module, "MsiDatabaseOpenViewW", open_view) && find(module, "MsiViewExecute", execute) &&
      find(module, "MsiViewFetch", fetch) && find(module, "MsiRecordGetStringW", get_string) &&
      find(module, "MsiCloseHandle", close)) {
    return;
  }
  missing = GetLastError();
  if (missing == MSI_OK) missing = MSI_FUNCTION_FAILED;
}

const installer& api() noexcept {
  static const installer functions;
  return functions;
}

// The paths that databases were opened from, until those are closed: one may be that of a copy.
class open_paths {
 public:
  void keep(msi_handle database, std::shared_ptr<msi_system_path> path) {
    const std::lock_guard lock(mutex_);
    paths_.insert_or_assign(database, std::move(path));
  }
  void drop(msi_handle handle) {
    std::shared_ptr<msi_system_path> last;  // a copy is removed outside the lock
    const std::lock_guard lock(mutex_);
    if (const auto at = paths_.find(handle); at != paths_.end()) {
      last = std::move(at->second);
      paths_.erase(at);
    }
  }

 private:
  std::mutex mutex_;
  std::unordered_map<msi_handle, std::shared_ptr<msi_system_path>> paths_;
};

open_paths& kept() {
  static open_paths table;
  return table;
}

// The installer trusts what it opens further than these bytes deserve: a table whose chain does not end, a damaged
// description of tables, or a code page that is none, ends or holds the process in some releases.
bool is_fit(msi_package& package) {
  if (!package.is_database()) return false;
  const auto tables = package_tables::open(package.compound(), {});
  if (!tables) return false;
  const std::uint32_t code_page = tables->strings().code_page();
  return code_page == 0 || IsValidCodePage(code_page) != FALSE;
}

msi_result system_open_database(const qchar* path, msi_handle* database) noexcept {
  std::shared_ptr<msi_package> package;
  if (msi_package_open(path, &package) == QERR_LOW_MEMORY) return MSI_OUT_OF_MEMORY;
  return msi_open_package_database(package, database);
}

msi_result system_open_view(msi_handle database, const qchar* query, msi_handle* view) noexcept {
  return api().missing != MSI_OK ? api().missing : api().open_view(database, qsys_wide(query), view);
}

msi_result system_execute(msi_handle view) noexcept {
  return api().missing != MSI_OK ? api().missing : api().execute(view, 0);
}

msi_result system_fetch(msi_handle view, msi_handle* record) noexcept {
  return api().missing != MSI_OK ? api().missing : api().fetch(view, record);
}

msi_result system_get_string(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  if (api().missing != MSI_OK) return api().missing;
  const DWORD capacity = std::min<DWORD>(*size, MSI_MAX_TEXT + 1);
  DWORD units = capacity;
  msi_result result = api().get_string(record, field, qsys_wide(buffer), &units);
  *size = std::min<DWORD>(units, MSI_MAX_TEXT);
  if (result == MSI_MORE_DATA && capacity > MSI_MAX_TEXT) {
    *size = msi_cut_length(buffer, units);
    buffer[*size] = u'\0';
    result = MSI_OK;
  }
  return result;
}

msi_result system_close(msi_handle handle) noexcept {
  if (api().missing != MSI_OK) return api().missing;
  const msi_result result = api().close(handle);
  kept().drop(handle);
  return result;
}

}  // namespace

const msi_interface& msi_platform_interface() noexcept {
  static constexpr msi_interface table{system_open_database, system_open_view,  system_execute,
                                       system_fetch,         system_get_string, system_close};
  return table;
}

msi_result msi_open_package_database(const std::shared_ptr<msi_package>& package, msi_handle* database) noexcept try {
  if (database == nullptr) return MSI_INVALID_PARAMETER;
  if (api().missing != MSI_OK) return api().missing;
  if (package == nullptr || !is_fit(*package)) return MSI_OPEN_FAILED;
  auto path = msi_system_path::of(*package);
  if (!path) return MSI_OPEN_FAILED;
  constexpr const wchar_t* read_only = nullptr;  // MSIDBOPEN_READONLY
  msi_handle opened = 0;
  const msi_result result = api().open_database(qsys_wide(path->text().c_str()), read_only, &opened);
  if (result != MSI_OK) return result;
  try {
    kept().keep(opened, std::move(path));
  } catch (const std::bad_alloc&) {
    (void)api().close(opened);
    throw;
  }
  *database = opened;
  return MSI_OK;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}
