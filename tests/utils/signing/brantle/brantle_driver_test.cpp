// The driver's result codes and messages, over a scratch tree, a replaced share and a faulty disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

std::uint32_t connect_code = 0;
int disconnects = 0;
std::uint32_t fakeConnect(const brantle_share_use&, std::uint32_t* bad) {
  *bad = connect_code == 0 ? 0 : 2;
  return connect_code;
}
std::uint32_t fakeDisconnect(const std::u16string&) {
  ++disconnects;
  return 0;
}
constexpr brantle_share_operations kFake = {fakeConnect, fakeDisconnect};

class Driver : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(qlib_lib_init_basic(), 0U);
    qlib_set_standalone(true);
    qlog_console_off();
    root_ = fs::path(std::getenv("TESSIVATOR_SCRATCH")) / testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(root_);
    fs::create_directories(root_ / "in");
    fs::create_directories(root_ / "out");
    brantle_share_set_operations(&kFake);
    connect_code = 0;
    disconnects = 0;
  }
  void TearDown() override {
    brantle_share_set_operations(nullptr);
    qlib_lib_fini_basic();
  }

  static std::u16string text(const fs::path& path) { return path.u16string(); }

  std::int32_t run(const fs::path& in, const fs::path& out, std::string* printed = nullptr, bool access = false,
                   bool share = false) {
    testing::internal::CaptureStdout();
    std::int32_t result = 0;
    {
      Brantle request;
      request.setReposPath(text(in));
      request.setOutputPath(text(out));
      request.checkAccess = access ? 1 : 0;
      request.nwMode = share ? 1 : 0;
      result = request.invoke();
    }
    const std::string said = testing::internal::GetCapturedStdout();
    if (printed != nullptr) *printed = said;
    return result;
  }

  static std::string content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  void put(const std::string& name, const std::string& bytes) const {
    fs::create_directories((root_ / "in" / name).parent_path());
    std::ofstream(root_ / "in" / name, std::ios::binary) << bytes;
  }

  static constexpr const char* kEmptyReport = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ExecutableData/>\n";
  fs::path root_;
};

TEST_F(Driver, AnEmptyDirectoryGivesAnEmptyReport) {
  EXPECT_EQ(run(root_ / "in", root_ / "out"), 0);
  EXPECT_EQ(content(root_ / "out" / "info.xml"), kEmptyReport);
}

TEST_F(Driver, AFileThatIsNoImageGetsNoRecord) {
  put("a.txt", "text");
  put("b.exe", "MZ but nothing behind");
  EXPECT_EQ(run(root_ / "in", root_ / "out"), 0);
  EXPECT_EQ(content(root_ / "out" / "info.xml"), kEmptyReport);
}

TEST_F(Driver, APathThatIsNotThereIsRefusedWithItsMessage) {
  std::string printed;
  EXPECT_EQ(run(root_ / "nowhere", root_ / "out", &printed), BRANTLE_INVALID_PATH);
  EXPECT_THAT(printed, HasSubstr("\nInvalid Repos Path: ["));
  EXPECT_THAT(printed, HasSubstr("] specified.ecode 1008: No more values/keys left to iterate."));
  EXPECT_FALSE(fs::exists(root_ / "out" / "info.xml"));
}

TEST_F(Driver, AnEmptyPathIsRefusedSilently) {
  std::string printed;
  EXPECT_EQ(run("", root_ / "out", &printed), BRANTLE_INVALID_PATH);
  EXPECT_EQ(printed, "");
}

TEST_F(Driver, AnAccessTestWritesNothing) {
  put("a.txt", "text");
  EXPECT_EQ(run(root_ / "in", root_ / "out", nullptr, true), 0);
  EXPECT_TRUE(fs::is_empty(root_ / "out"));
}

TEST_F(Driver, AMissingOutputDirectoryIsNotCreatedAndNotReported) {
  std::string printed;
  EXPECT_EQ(run(root_ / "in", root_ / "absent", &printed), 0);
  EXPECT_FALSE(fs::exists(root_ / "absent"));
  EXPECT_EQ(printed, "");
}

TEST_F(Driver, AnOldReportIsReplaced) {
  std::ofstream(root_ / "out" / "info.xml") << std::string(5000, 'x');
  EXPECT_EQ(run(root_ / "in", root_ / "out"), 0);
  EXPECT_EQ(content(root_ / "out" / "info.xml"), kEmptyReport);
  for (const auto& entry : fs::directory_iterator(root_ / "out")) EXPECT_EQ(entry.path().filename(), "info.xml");
}

TEST_F(Driver, ShareFailuresMapToTheirResults) {
  const struct {
    std::uint32_t system;
    std::int32_t result;
  } cases[] = {{53, 20001}, {67, 20001}, {1219, 20003}, {5, 20002}, {1326, 20002}, {50, 20002}};
  for (const auto& c : cases) {
    connect_code = c.system;
    std::string printed;
    EXPECT_EQ(run(root_ / "in", root_ / "out", &printed, false, true), c.result) << c.system;
    EXPECT_THAT(printed, testing::StartsWith("Netuseadd() returned " + std::to_string(c.system) + " (arge# = 2)"));
    EXPECT_TRUE(fs::is_empty(root_ / "out"));
  }
  EXPECT_EQ(disconnects, 0) << "a connection that was never made must not be removed";
}

TEST_F(Driver, AConnectionIsRemovedWhenTheRequestEnds) {
  EXPECT_EQ(run(root_ / "in", root_ / "out", nullptr, false, true), 0);
  EXPECT_EQ(disconnects, 1);
  EXPECT_EQ(run(root_ / "nowhere", root_ / "out", nullptr, true, true), BRANTLE_INVALID_PATH);
  EXPECT_EQ(disconnects, 2);
  EXPECT_EQ(run(root_ / "in", root_ / "out", nullptr, false, false), 0);
  EXPECT_EQ(disconnects, 2);
}

}  // namespace
