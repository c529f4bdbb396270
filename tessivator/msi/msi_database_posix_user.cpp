// There is no installer here: packages are read by property_table, and the handles and numbers of the installer's
// database interface are kept up so that the callers' steps are the same everywhere.
#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "common/qlib/qlog.h"
#include "msi/code_page.h"
#include "msi/msi_database.h"
#include "msi/package_object.h"
#include "msi/property_table.h"

static constexpr std::uint32_t module_id = QLOG_PROG;

namespace {

struct object {
  std::shared_ptr<msi_package> package;        // a database
  std::shared_ptr<property_table> properties;  // a database and its views
  std::string name;                            // a view: the property that it asks for
  bool executed = false;
  bool fetched = false;
  std::u16string text;  // a record: its only field
  enum class kind : std::uint8_t { database, view, record } what = kind::database;
};

// All open handles. An object is used by one thread at a time, as the header asks; the table itself by many.
class handle_table {
 public:
  msi_handle add(std::shared_ptr<object> item) {
    const std::lock_guard lock(mutex_);
    do {
      ++last_;
    } while (last_ == 0 || items_.contains(last_));
    items_.emplace(last_, std::move(item));
    return last_;
  }
  std::shared_ptr<object> find(msi_handle handle, object::kind what) {
    const std::lock_guard lock(mutex_);
    const auto at = items_.find(handle);
    return at != items_.end() && at->second->what == what ? at->second : nullptr;
  }
  bool remove(msi_handle handle) {
    std::shared_ptr<object> last_owner;  // released outside the lock: closing a file may take time
    const std::lock_guard lock(mutex_);
    const auto at = items_.find(handle);
    if (at == items_.end()) return false;
    last_owner = std::move(at->second);
    items_.erase(at);
    return true;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<msi_handle, std::shared_ptr<object>> items_;
  msi_handle last_ = 0;
};

handle_table& handles() {
  static handle_table table;
  return table;
}

// The NAME of the one query that is understood; empty for any other query.
std::string queried_property(std::u16string_view query) {
  constexpr std::u16string_view head = u"SELECT `Value` FROM `Property` WHERE `Property`='";
  if (!query.starts_with(head) || !query.ends_with(u"'") || query.size() <= head.size() + 1) return {};
  const std::u16string_view name = query.substr(head.size(), query.size() - head.size() - 1);
  std::string ascii;
  for (const char16_t unit : name) {
    if (unit == u'\'' || unit >= 0x80) return {};
    ascii.push_back(static_cast<char>(unit));
  }
  return ascii;
}

msi_result posix_open_database(const qchar* path, msi_handle* database) noexcept {
  std::shared_ptr<msi_package> package;
  if (msi_package_open(path, &package) == QERR_LOW_MEMORY) return MSI_OUT_OF_MEMORY;
  return msi_open_package_database(package, database);
}

msi_result posix_open_view(msi_handle database, const qchar* query, msi_handle* view) noexcept try {
  const auto owner = handles().find(database, object::kind::database);
  if (!owner) return MSI_INVALID_HANDLE;
  auto item = std::make_shared<object>();
  item->what = object::kind::view;
  item->properties = owner->properties;
  item->name = queried_property(query);
  if (item->name.empty() || !item->properties->exists()) return MSI_BAD_QUERY;
  *view = handles().add(std::move(item));
  return MSI_OK;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

msi_result posix_execute(msi_handle view) noexcept {
  const auto item = handles().find(view, object::kind::view);
  if (!item) return MSI_INVALID_HANDLE;
  item->executed = true;
  item->fetched = false;
  return MSI_OK;
}

// A property's name is the table's key, so there is one row at most.
msi_result posix_fetch(msi_handle view, msi_handle* record) noexcept try {
  const auto item = handles().find(view, object::kind::view);
  if (!item) return MSI_INVALID_HANDLE;
  if (!item->executed) return MSI_FUNCTION_FAILED;
  if (item->fetched) return MSI_NO_MORE_ITEMS;
  auto row = std::make_shared<object>();
  row->what = object::kind::record;
  const property_result result = item->properties->value(item->name, row->text);
  if (result == property_result::unreadable) return MSI_FUNCTION_FAILED;
  item->fetched = true;
  if (result != property_result::found) return MSI_NO_MORE_ITEMS;
  *record = handles().add(std::move(row));
  return MSI_OK;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

msi_result posix_get_string(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  const auto item = handles().find(record, object::kind::record);
  if (!item) return MSI_INVALID_HANDLE;
  return msi_copy_text(field == 1 ? std::u16string_view(item->text) : std::u16string_view(), buffer, size);
}

msi_result posix_close(msi_handle handle) noexcept { return handles().remove(handle) ? MSI_OK : MSI_INVALID_HANDLE; }

}  // namespace

msi_result msi_open_package_database(const std::shared_ptr<msi_package>& package, msi_handle* database) noexcept try {
  if (database == nullptr) return MSI_INVALID_PARAMETER;
  if (package == nullptr || !package->is_database()) return MSI_OPEN_FAILED;
  auto item = std::make_shared<object>();
  item->package = package;
  item->properties = property_table::open(package->compound());
  if (!item->properties) return MSI_OPEN_FAILED;
  const std::uint32_t code_page = item->properties->code_page();
  if (!code_page_is_known(code_page)) {
    QLOG(QLOG_WARNING, u"Code page %u of %s is not known; its texts are read as 1252\n", code_page, package->path());
  }
  *database = handles().add(std::move(item));
  return MSI_OK;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

msi_result msi_database_get_summary(msi_handle database, std::uint32_t number, qchar* buffer,
                                    std::uint32_t* size) noexcept try {
  if (size == nullptr) return MSI_INVALID_PARAMETER;
  const auto item = handles().find(database, object::kind::database);
  if (!item) return MSI_INVALID_HANDLE;
  std::u16string text;
  const msi_result result = item->package->read_summary(number, text);
  return result == MSI_OK ? msi_copy_text(text, buffer, size) : result;
} catch (const std::bad_alloc&) {
  return MSI_OUT_OF_MEMORY;
}

const msi_interface& msi_platform_interface() noexcept {
  static constexpr msi_interface table{posix_open_database, posix_open_view,  posix_execute,
                                       posix_fetch,         posix_get_string, posix_close};
  return table;
}
