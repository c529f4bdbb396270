#include <map>
#include <vector>

#include "support/replaced.h"
#include "support/runtime.h"
#include "utils/signing/brantle/msiExtractProductInfo.h"

namespace {

// An installer whose answers the test sets, and which counts the handles that are open.
struct installer {
  std::map<std::string, msi_result> answers;  // by operation; 0 when not named
  std::u16string value;
  std::u16string query;
  int open = 0;
  msi_handle next = 10;
} fake;

msi_result answer(const char* operation, msi_handle* handle) {
  const auto at = fake.answers.find(operation);
  if (at != fake.answers.end()) return at->second;
  if (handle != nullptr) {
    *handle = fake.next++;
    ++fake.open;
  }
  return MSI_OK;
}

msi_result fake_get_string(msi_handle /*record*/, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
  EXPECT_EQ(field, 1U);
  const bool asks = *size == 0;
  const msi_result set = answer(asks ? "size" : "read", nullptr);
  if (set != MSI_OK) return set;
  const std::uint32_t capacity = asks ? 0 : *size;
  *size = static_cast<std::uint32_t>(fake.value.size());
  if (asks && fake.value.empty()) return MSI_OK;
  fake.value.copy(buffer, capacity == 0 ? 0 : capacity - 1);
  if (capacity <= fake.value.size()) return MSI_MORE_DATA;
  buffer[fake.value.size()] = u'\0';
  return MSI_OK;
}

constexpr msi_interface fake_interface{
    [](const qchar*, msi_handle* database) noexcept { return answer("open", database); },
    [](msi_handle, const qchar* query, msi_handle* view) noexcept {
      fake.query = query;
      return answer("view", view);
    },
    [](msi_handle) noexcept { return answer("execute", nullptr); },
    [](msi_handle, msi_handle* record) noexcept { return answer("fetch", record); },
    fake_get_string,
    [](msi_handle) noexcept {
      --fake.open;
      return MSI_OK;
    }};

class Extractor : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    fake = {};
  }
  // The result of asking for the product's name; `log` holds the messages.
  msi_result ask(std::u16string& value) {
    msi_result result = 0;
    log = logged(QLOG_PROG, [&] {
      MsiProductInfoExtractor extractor(u"package.msi");
      result = extractor.getPropertyValueFromMsi(u"ProductName", value);
      EXPECT_EQ(fake.open, 1);  // the database
    });
    EXPECT_EQ(fake.open, 0);
    return result;
  }
  std::string log;

 private:
  replaced<msi_set_interface> interface_{&fake_interface};
};

TEST_F(Extractor, ReturnsEachStepsCodeAndClosesWhatItOpened) {
  fake.answers["open"] = MSI_OPEN_FAILED;
  EXPECT_THROW(MsiProductInfoExtractor(u"package.msi"), std::uint32_t);
  const struct {
    const char* step;
    msi_result code;
    const char* line;
  } cases[] = {
      {"view", 1615, "Failed DB Open View rc =1615,"}, {"execute", 1627, "Failed View Execute rc =1627,"},
      {"fetch", 259, "Failed View Fetch rc =259,"},    {"size", 6, "Failed getBufSizeInFetchedRecord rc =6,"},
      {"read", 1627, "Failed get STring rc =1627,"},
  };
  for (const auto& c : cases) {
    fake.answers = {{c.step, c.code}};
    fake.value = u"text";
    std::u16string value = u"untouched";
    EXPECT_EQ(ask(value), c.code);
    EXPECT_NE(log.find(c.line), std::string::npos) << log;
    EXPECT_TEXT(value, u"untouched");
  }
}

// An empty value is logged and none the less one; others end at their first zero, and at 4,000 units, never in a pair.
TEST_F(Extractor, CutsTheValue) {
  const std::u16string most(3999, u'x');
  const struct {
    std::u16string value, expected;
  } cases[] = {{u"", u""},
               {{u"Pro\0duct", 8}, u"Pro"},
               {most + u"y", most + u"y"},
               {most + u"yz", most + u"y"},
               {most + u"\U0001F600", most},
               {most.substr(1) + u"\U0001F600z", most.substr(1) + u"\U0001F600"}};
  for (const auto& c : cases) {
    fake.value = c.value;
    std::u16string value = u"old";
    EXPECT_EQ(ask(value), MSI_OK);
    EXPECT_EQ(log.find("Failed Record get String rc =0,") != std::string::npos, c.value.empty()) << log;
    EXPECT_TEXT(value, c.expected);
  }
  EXPECT_TEXT(fake.query, u"SELECT `Value` FROM `Property` WHERE `Property`='ProductName'");
}

}  // namespace
