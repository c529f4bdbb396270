#include "utils/signing/brantle/msiExtractProductInfo.h"

#include <algorithm>
#include <new>
#include <utility>

#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_PROG;

namespace {

constexpr std::uint32_t longest_value = 4000;  // units

// Closes a view or record at the end of the scope.
class HandleOwner {
 public:
  HandleOwner() noexcept = default;
  HandleOwner(const HandleOwner&) = delete;
  HandleOwner& operator=(const HandleOwner&) = delete;
  ~HandleOwner() { (void)msi_close_handle(handle_); }
  [[nodiscard]] msi_handle get() const noexcept { return handle_; }
  [[nodiscard]] msi_handle* out() noexcept { return &handle_; }

 private:
  msi_handle handle_ = 0;
};

}  // namespace

MsiProductInfoExtractor::MsiProductInfoExtractor(const std::u16string& path) : path_(path) {
  const msi_result result = msi_open_database(path_.c_str(), &database_);
  if (result != MSI_OK) throw std::uint32_t{result};
}

MsiProductInfoExtractor::MsiProductInfoExtractor(const std::u16string& path,
                                                 const std::shared_ptr<msi_package>& package)
    : path_(path) {
  const msi_result result = msi_open_package_database(package, &database_);
  if (result != MSI_OK) throw std::uint32_t{result};
}

msi_package_facts MsiProductInfoExtractor::facts() {
  msi_package_facts found;
  if (msi_read_package_facts(database_, &found) != QERR_OK) throw std::bad_alloc();
  return found;
}

MsiProductInfoExtractor::~MsiProductInfoExtractor() { (void)msi_close_handle(database_); }

msi_result MsiProductInfoExtractor::getPropertyValueFromMsi(std::u16string name, std::u16string& value) {
  const std::u16string query = u"SELECT `Value` FROM `Property` WHERE `Property`='" + std::move(name) + u"'";
  HandleOwner view;
  msi_result result = msi_database_open_view(database_, query.c_str(), view.out());
  if (result != MSI_OK) {
    QLOG(QLOG_ERROR, u"Failed DB Open View rc =%d, error = %d\n", result, msi_last_system_error());
    return result;
  }
  result = msi_view_execute(view.get());
  if (result != MSI_OK) {
    QLOG(QLOG_ERROR, u"Failed View Execute rc =%d, error = %d\n", result, msi_last_system_error());
    return result;
  }
  HandleOwner record;
  result = msi_view_fetch(view.get(), record.out());
  if (result != MSI_OK) {
    QLOG(QLOG_ERROR, u"Failed View Fetch rc =%d, error = %d\n", result, msi_last_system_error());
    return result;
  }
  std::uint32_t size = 0;
  result = getBufSizeInFetchedRecord(record.get(), size);
  // A value with characters gives "more data", an empty one 0.
  if (result != MSI_OK && result != MSI_MORE_DATA) {
    QLOG(QLOG_ERROR, u"Failed getBufSizeInFetchedRecord rc =%d,error = %d\n", result, msi_last_system_error());
    return result;
  }
  // What does not fit is cut, like the version strings of a record.
  const bool cut = size > longest_value;
  size = std::min(size, longest_value) + 1;
  std::u16string buffer(size, u'\0');
  result = msi_record_get_string(record.get(), 1, buffer.data(), &size);
  if (result == MSI_MORE_DATA && cut) {
    buffer[longest_value] = 0;
    // Never inside a pair.
    qchar& last = buffer[longest_value - 1];
    if (last >= 0xD800 && last <= 0xDBFF) last = 0;
  } else if (result != MSI_OK) {
    QLOG(QLOG_ERROR, u"Failed get STring rc =%d, error = %d\n", result, msi_last_system_error());
    return result;
  }
  value.assign(buffer.c_str());
  return MSI_OK;
}

// An empty value fits into the empty buffer: its result 0 is logged like a failure but is none.
msi_result MsiProductInfoExtractor::getBufSizeInFetchedRecord(msi_handle record, std::uint32_t& size) {
  qchar empty = u'\0';
  size = 0;
  const msi_result result = msi_record_get_string(record, 1, &empty, &size);
  if (result != MSI_MORE_DATA) {
    QLOG(QLOG_ERROR, u"Failed Record get String rc =%d, error = %d\n", result, msi_last_system_error());
  }
  return result;
}
