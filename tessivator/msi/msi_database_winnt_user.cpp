#include <windows.h>

#include <new>

#include "msi/msi_database.h"
#include "msi/msi_path_winnt.h"

// The installer's database interface, found at run time: hosts without it must still load this library. The search is
// kept to the system's own folder, so that no msi.dll beside the host or in its working folder is taken for it.
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

wchar_t* wide(qchar* text) noexcept { return reinterpret_cast<wchar_t*>(text); }
const wchar_t* wide(const qchar* text) noexcept { return reinterpret_cast<const wchar_t*>(text); }

msi_result system_open_database(const qchar* path, msi_handle* database) noexcept try {
  if (api().missing != MSI_OK) return api().missing;
  constexpr const wchar_t* read_only = nullptr;  // MSIDBOPEN_READONLY
  return api().open_database(wide(msi_system_path(path).c_str()), read_only, database);
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

msi_result system_open_view(msi_handle database, const qchar* query, msi_handle* view) noexcept {
  return api().missing != MSI_OK ? api().missing : api().open_view(database, wide(query), view);
}

msi_result system_execute(msi_handle view) noexcept {
  return api().missing != MSI_OK ? api().missing : api().execute(view, 0);
}

msi_result system_fetch(msi_handle view, msi_handle* record) noexcept {
  return api().missing != MSI_OK ? api().missing : api().fetch(view, record);
}

msi_result system_get_string(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  if (api().missing != MSI_OK) return api().missing;
  DWORD units = *size;
  const msi_result result = api().get_string(record, field, wide(buffer), &units);
  *size = units;
  return result;
}

msi_result system_close(msi_handle handle) noexcept {
  return api().missing != MSI_OK ? api().missing : api().close(handle);
}

}  // namespace

const msi_interface& msi_platform_interface() noexcept {
  static constexpr msi_interface table{system_open_database, system_open_view,  system_execute,
                                       system_fetch,         system_get_string, system_close};
  return table;
}
