// A package is asked for a property step by step; here one step fails. What whole packages answer is program_test's.
#include <gmock/gmock.h>

#include "support/fixture_table.h"
#include "support/replaced.h"
#include "support/runtime.h"
#include "utils/signing/brantle/msiExtractProductInfo.h"

namespace {

enum class step : std::uint8_t { open, view, execute, fetch, size, read };
step failing = step::open;
msi_result failure = MSI_OK;
int handles = 0;  // that are open

// The platform's operation; a step that opens a handle counts it.
template <step Step, auto Operation, int Opened = 0>
constexpr auto own = [](auto... arguments) noexcept -> msi_result {
  if (failing == Step) return failure;
  handles += Opened;
  return (msi_platform_interface().*Operation)(arguments...);
};
constexpr msi_interface stepwise{
    own<step::open, &msi_interface::open_database, 1>,
    own<step::view, &msi_interface::open_view, 1>,
    own<step::execute, &msi_interface::execute>,
    own<step::fetch, &msi_interface::fetch, 1>,
    [](msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept {
      return *size == 0 ? own<step::size, &msi_interface::get_string>(record, field, buffer, size)
                        : own<step::read, &msi_interface::get_string>(record, field, buffer, size);
    },
    [](msi_handle handle) noexcept {
      --handles;
      return msi_platform_interface().close(handle);
    }};

using Extractor = Runtime;

TEST_F(Extractor, EachStepsFailureIsReturnedAndLeavesNothingOpen) {
  const replaced<msi_set_interface> interface(&stepwise);
  const struct {
    step at;
    msi_result code;
    const char* line;
  } cases[] = {{step::view, 1615, "Failed DB Open View rc =1615,"},
               {step::execute, 1627, "Failed View Execute rc =1627,"},
               {step::fetch, 259, "Failed View Fetch rc =259,"},
               {step::size, 6, "Failed getBufSizeInFetchedRecord rc =6,"},
               {step::read, 1627, "Failed get STring rc =1627,"}};
  const std::u16string package = fixture_wide("packages/product.msi");
  for (const auto& c : cases) {
    failing = c.at;
    failure = c.code;
    std::u16string value = u"untouched";
    const std::string log = logged(QLOG_PROG, [&] {
      EXPECT_EQ(MsiProductInfoExtractor(package).getPropertyValueFromMsi(u"ProductName", value), c.code);
    });
    EXPECT_THAT(log, testing::HasSubstr(c.line));
    EXPECT_TEXT(value, u"untouched");
    EXPECT_EQ(handles, 0) << c.line;
  }
  failing = step::open;
  EXPECT_THROW(MsiProductInfoExtractor{package}, std::uint32_t);
}

}  // namespace
