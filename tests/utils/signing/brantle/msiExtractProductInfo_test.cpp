#include <map>
#include <sstream>
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
  const std::uint32_t capacity = *size;
  *size = static_cast<std::uint32_t>(fake.value.size());
  if (asks) return fake.value.empty() ? MSI_OK : MSI_MORE_DATA;
  EXPECT_EQ(capacity, fake.value.size() + 1);
  fake.value.copy(buffer, fake.value.size());
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
  // The texts of the lines that `body` logs, from "Failed" to the code.
  template <class Body>
  static std::vector<std::string> failures(Body&& body) {
    std::istringstream stream(printed(body));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
      const std::size_t at = line.find("Failed");
      if (at != std::string::npos) lines.push_back(line.substr(at, line.find(", ", at) - at));
    }
    return lines;
  }

 private:
  replaced<msi_set_interface> interface_{&fake_interface};
};

TEST_F(Extractor, ThrowsTheInstallersCode) {
  fake.answers["open"] = MSI_OPEN_FAILED;
  try {
    const MsiProductInfoExtractor extractor(u"package.msi");
    FAIL() << "opened";
  } catch (const std::uint32_t code) {
    EXPECT_EQ(code, 110U);
  }
  EXPECT_EQ(fake.open, 0);
}

TEST_F(Extractor, ReturnsEachStepsCodeAndClosesWhatItOpened) {
  struct {
    const char* step;
    msi_result code;
    std::vector<std::string> lines;
  } const cases[] = {
      {"view", 1615, {"Failed DB Open View rc =1615"}},
      {"execute", 1627, {"Failed View Execute rc =1627"}},
      {"fetch", 259, {"Failed View Fetch rc =259"}},
      {"size", 6, {"Failed Record get String rc =6", "Failed getBufSizeInFetchedRecord rc =6,error = "}},
      {"read", 1627, {"Failed get STring rc =1627"}},
  };
  for (const auto& c : cases) {
    fake.answers = {{c.step, c.code}};
    fake.value = u"text";
    std::u16string value = u"untouched";
    std::vector<std::string> lines = failures([&] {
      MsiProductInfoExtractor extractor(u"package.msi");
      EXPECT_EQ(extractor.getPropertyValueFromMsi(u"ProductName", value), c.code) << c.step;
      EXPECT_EQ(fake.open, 1) << c.step;  // the database
    });
    EXPECT_EQ(fake.open, 0) << c.step;
    EXPECT_EQ(value, u"untouched") << c.step;
    for (std::string& line : lines) {
      const std::size_t at = line.find(",error = ");
      if (at != std::string::npos) line.resize(at + 9);  // the system error itself is the thread's
    }
    EXPECT_EQ(lines, c.lines);
  }
}

TEST_F(Extractor, LogsTheEmptyValueAndReturnsIt) {
  MsiProductInfoExtractor extractor(u"package.msi");
  std::u16string value = u"old";
  const auto ask = [&] { EXPECT_EQ(extractor.getPropertyValueFromMsi(u"Manufacturer", value), MSI_OK); };
  EXPECT_EQ(failures(ask), std::vector<std::string>{"Failed Record get String rc =0"});
  EXPECT_EQ(value, u"");
}

TEST_F(Extractor, CutsTheValueAtItsFirstZero) {
  MsiProductInfoExtractor extractor(u"package.msi");
  fake.value = std::u16string(u"Pro\0duct", 8);
  std::u16string value;
  const auto ask = [&] { EXPECT_EQ(extractor.getPropertyValueFromMsi(u"ProductName", value), MSI_OK); };
  EXPECT_TRUE(failures(ask).empty());
  EXPECT_EQ(value, u"Pro");
  EXPECT_EQ(fake.query, u"SELECT `Value` FROM `Property` WHERE `Property`='ProductName'");
}

}  // namespace
