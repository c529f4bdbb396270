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
  for (const char* name : {"images/exe64_rsa.exe", "images/exe32.exe", "packages/product_rsa.msi", "tree/readme.txt"}) {
    fs::copy_file(fixture_path(name), root_ / "in" / fs::path(name).filename());
  }
  faulty_provider disk;
  EXPECT_EQ(run(root_ / "in", root_ / "out"), 0);
  EXPECT_EQ(disk.calls(file_op::open), 4U);
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

// Whatever fails, the scan ends well, says what it left out, and keeps the old report when there is no new one.
TEST_F(Driver, WhatWasLeftOutIsSaidAndAFailedReportKeepsTheOldOne) {
  const struct {
    file_op op;
    std::u16string_view path;
    qerr_t code;
    const char* text;
  } cases[] = {{file_op::exists, u"none", QERR_IO, ""},
               {file_op::open, u".exe", QERR_PERMISSION, "incomplete: 1 file"},
               {file_op::open, u".exe", QERR_LOW_MEMORY, "incomplete: 1 file"},
               {file_op::read, u".exe", QERR_IO, "incomplete: 1 file"},
               {file_op::list, u"sub", QERR_PERMISSION, "incomplete: 1 directory"},
               {file_op::next, u"sub", QERR_IO, "incomplete: the walk ended early"},
               {file_op::write, u".tmp", QERR_NO_SPACE, nullptr},
               {file_op::create_exclusive, u".tmp", QERR_PERMISSION, nullptr}};
  for (const auto& c : cases) {
    put(u"in/a.exe", file_text(fixture_path("images/exe32_rsa.exe")));
    put(u"in/sub/b.txt", "text");
    put(u"out/info.xml", "old");
    faulty_provider disk;
    disk.only(std::u16string(c.path));
    disk.fail(c.op, 1, c.code, faulty_provider::ALWAYS);
    Brantle request;
    request.setReposPath(text(root_ / "in"));
    request.setOutputPath(text(root_ / "out"));
    EXPECT_EQ(request.invoke(), BRANTLE_OK);
    const std::string report = get(at(u"out/info.xml"));
    if (c.text == nullptr) {
      EXPECT_EQ(report, "old");
      EXPECT_EQ(request.incompleteText(), "");
    } else {
      EXPECT_EQ(request.incompleteText(), c.text);
      EXPECT_EQ(report.find(std::string("<!-- ") + c.text + " -->") != std::string::npos, *c.text != 0) << report;
    }
    for (const auto& entry : fs::directory_iterator(root_ / "out")) EXPECT_NE(entry.path().extension(), ".tmp");
  }
}

}  // namespace
