// The installer's database interface, found at run time: hosts without it must still load this library. The search is
// kept to the system's own folder, so that no msi.dll beside the host or in its working folder is taken for it.
#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "common/qlib/qsys_winnt_user.h"
#include "msi/code_page.h"
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
  using get_summary_fn = UINT(WINAPI*)(msi_handle, const wchar_t*, UINT, msi_handle*);
  using get_summary_text_fn = UINT(WINAPI*)(msi_handle, UINT, UINT*, INT*, FILETIME*, wchar_t*, DWORD*);

  open_database_fn open_database = nullptr;
  open_view_fn open_view = nullptr;
  execute_fn execute = nullptr;
  fetch_fn fetch = nullptr;
  get_string_fn get_string = nullptr;
  close_fn close = nullptr;
  get_summary_fn get_summary = nullptr;
  get_summary_text_fn get_summary_text = nullptr;
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
      find(module, "MsiCloseHandle", close) && find(module, "MsiGetSummaryInformationW", get_summary) &&
      find(module, "MsiSummaryInfoGetPropertyW", get_summary_text)) {
    return;
  }
  missing = GetLastError();
  if (missing == MSI_OK) missing = MSI_FUNCTION_FAILED;
}

const installer& api() noexcept {
  static const installer functions;
  return functions;
}

// The packages of open databases: a copy that one was opened from stays as long as it is open.
class open_packages {
 public:
  void keep(msi_handle database, std::shared_ptr<msi_package> package) {
    const std::lock_guard lock(mutex_);
    packages_.insert_or_assign(database, std::move(package));
  }
  [[nodiscard]] std::shared_ptr<msi_package> find(msi_handle database) {
    const std::lock_guard lock(mutex_);
    const auto at = packages_.find(database);
    return at != packages_.end() ? at->second : nullptr;
  }
  void drop(msi_handle handle) {
    std::shared_ptr<msi_package> last;  // released outside the lock
    const std::lock_guard lock(mutex_);
    if (const auto at = packages_.find(handle); at != packages_.end()) {
      last = std::move(at->second);
      packages_.erase(at);
    }
  }

 private:
  std::mutex mutex_;
  std::unordered_map<msi_handle, std::shared_ptr<msi_package>> packages_;
};

open_packages& kept() {
  static open_packages table;
  return table;
}

// The installer trusts what it opens further than these bytes deserve: a table whose chain does not end, a damaged
// description of tables, or a code page that is none, ends or holds the process in some releases.
bool is_fit(msi_package& package) {
  if (!package.is_database()) return false;
  const auto tables = package_tables::open(package.compound(), {});
  if (!tables) return false;
  return code_page_is_known(tables->strings().code_page());
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

// Lets `get` write at most MSI_MAX_TEXT units into `buffer`.
template <class Get>
msi_result cut_text(qchar* buffer, std::uint32_t* size, Get get) noexcept {
  const DWORD capacity = std::min<DWORD>(*size, MSI_MAX_TEXT + 1);
  DWORD units = capacity;
  msi_result result = get(qsys_wide(buffer), &units);
  *size = std::min<DWORD>(units, MSI_MAX_TEXT);
  if (result == MSI_MORE_DATA && capacity > MSI_MAX_TEXT) {
    *size = msi_cut_length(buffer, units);
    buffer[*size] = u'\0';
    result = MSI_OK;
  }
  return result;
}

msi_result system_get_string(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  if (api().missing != MSI_OK) return api().missing;
  return cut_text(buffer, size,
                  [&](wchar_t* out, DWORD* units) { return api().get_string(record, field, out, units); });
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
  const auto path = msi_system_path::of(*package);
  if (!path) return MSI_OPEN_FAILED;
  constexpr const wchar_t* read_only = nullptr;  // MSIDBOPEN_READONLY
  msi_handle opened = 0;
  const msi_result result = api().open_database(qsys_wide(path->text().c_str()), read_only, &opened);
  if (result != MSI_OK) return result;
  try {
    kept().keep(opened, package);
  } catch (const std::bad_alloc&) {
    (void)api().close(opened);
    throw;
  }
  *database = opened;
  return MSI_OK;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

// The installer is asked only for a text that is there and whole, among others that it would write itself.
msi_result msi_database_get_summary(msi_handle database, std::uint32_t number, qchar* buffer,
                                    std::uint32_t* size) noexcept try {
  if (size == nullptr) return MSI_INVALID_PARAMETER;
  const auto package = kept().find(database);
  if (!package) return MSI_INVALID_HANDLE;
  std::u16string text;
  msi_result result = package->read_summary(number, text);
  if (result != MSI_OK) return result;
  if (!package->has_plain_summary()) return msi_copy_text(text, buffer, size);
  const std::uint32_t room = *size;
  msi_handle summary = 0;
  result = api().get_summary(database, nullptr, 0, &summary);
  if (result != MSI_OK) return result;
  UINT type = 0;
  result = cut_text(buffer, size, [&](wchar_t* out, DWORD* units) {
    INT integer = 0;
    FILETIME time{};
    return api().get_summary_text(summary, number, &type, &integer, &time, out, units);
  });
  (void)api().close(summary);
  // The installer takes a header that it does not like for a set without properties.
  if (result != MSI_OK || type == MSI_SUMMARY_TEXT) return result;
  *size = room;
  return msi_copy_text(text, buffer, size);
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}
