// The driver's result codes and messages, over a scratch tree, a replaced share and a faulty disk.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/replaced.h"
#include "support/scratch.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

namespace fs = std::filesystem;

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

class Driver : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    qlib_set_standalone(true);
    root_ = root();
    fs::create_directories(root_ / "in");
    fs::create_directories(root_ / "out");
    connect_code = 0;
    disconnects = 0;
  }
  static std::u16string text(const fs::path& path) { return path.u16string(); }

  std::int32_t run(const fs::path& in, const fs::path& out, std::string* printed = nullptr, bool access = false,
                   bool share = false) {
    std::int32_t result = 0;
    const std::string out_text = said([&] {
      Brantle request;
      request.setReposPath(text(in));
      request.setOutputPath(text(out));
      request.checkAccess = access ? 1 : 0;
      request.nwMode = share ? 1 : 0;
      result = request.invoke();
    });
    if (printed != nullptr) *printed = out_text;
    return result;
  }

  fs::path root_;
  replaced<brantle_share_set_operations> share_{&kFake};
};

// What the program's own tests cannot see, since it asks for none of this without a share.
TEST_F(Driver, WhatIsNotThereLeavesNothing) {
  put(u"in/a.txt", "text");
  const struct {
    fs::path in, out;
    bool access;
    std::int32_t result;
  } cases[] = {{"", root_ / "out", false, BRANTLE_INVALID_PATH},
               {root_ / "in", root_ / "out", true, 0},
               {root_ / "in", root_ / "absent", false, 0}};
  for (const auto& c : cases) {
    std::string printed;
    EXPECT_EQ(run(c.in, c.out, &printed, c.access), c.result);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(!fs::exists(c.out) || fs::is_empty(c.out));
  }
}

TEST_F(Driver, AFileIsOpenedOnceForAllThatIsSaidAboutIt) {
  for (const char* name : {"exe64_rsa.exe", "exe32.exe"}) {
    fs::copy_file(fixture_path(std::string("images/") + name), root_ / "in" / name);
  }
  faulty_provider disk;
  EXPECT_EQ(run(root_ / "in", root_ / "out"), 0);
  EXPECT_EQ(disk.calls(file_op::open), 2U);
  EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "out"), fs::directory_iterator()), 2);
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
