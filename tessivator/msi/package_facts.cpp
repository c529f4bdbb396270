#include "msi/package_facts.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

class handle_owner {
 public:
  handle_owner() noexcept = default;
  handle_owner(const handle_owner&) = delete;
  handle_owner& operator=(const handle_owner&) = delete;
  ~handle_owner() { (void)msi_close_handle(handle_); }
  [[nodiscard]] msi_handle get() const noexcept { return handle_; }
  [[nodiscard]] msi_handle* out() noexcept { return &handle_; }

 private:
  msi_handle handle_ = 0;
};

// The text that `read` writes into a buffer of the longest text's size.
template <class Read>
msi_fact text_from(Read read) {
  msi_fact fact;
  std::u16string buffer(MSI_MAX_TEXT + 1, u'\0');
  auto size = static_cast<std::uint32_t>(buffer.size());
  fact.result = read(buffer.data(), &size);
  if (fact.result == MSI_OK) fact.text = buffer.c_str();
  return fact;
}

msi_fact property(msi_handle database, const std::u16string& name) {
  const std::u16string query = u"SELECT `Value` FROM `Property` WHERE `Property`='" + name + u"'";
  return text_from([&](qchar* buffer, std::uint32_t* size) {
    handle_owner view;
    handle_owner record;
    msi_result result = msi_database_open_view(database, query.c_str(), view.out());
    if (result == MSI_OK) result = msi_view_execute(view.get());
    if (result == MSI_OK) result = msi_view_fetch(view.get(), record.out());
    return result == MSI_OK ? msi_record_get_string(record.get(), 1, buffer, size) : result;
  });
}

msi_fact summary(msi_handle database, std::uint32_t number) {
  return text_from(
      [&](qchar* buffer, std::uint32_t* size) { return msi_database_get_summary(database, number, buffer, size); });
}

}  // namespace

qerr_t msi_read_package_facts(msi_handle database, msi_package_facts* facts) noexcept try {
  if (facts == nullptr) return QERR_ARG2;
  msi_package_facts read;
  read.product_code = property(database, u"ProductCode");
  read.upgrade_code = property(database, u"UpgradeCode");
  read.product_language = property(database, u"ProductLanguage");
  read.package_code = summary(database, MSI_SUMMARY_REVISION);
  read.architecture = summary(database, MSI_SUMMARY_TEMPLATE);
  read.languages = read.architecture;
  const std::size_t end = read.architecture.text.find(u';');
  read.languages.text.erase(0, end == std::u16string::npos ? end : end + 1);
  read.architecture.text.resize(std::min(end, read.architecture.text.size()));
  *facts = std::move(read);
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}
