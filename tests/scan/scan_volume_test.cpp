#include <functional>

#include "cfg/cfg.h"
#include "scan/scan.h"
#include "scan/scan_system.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/replaced.h"
#include "support/scratch.h"

namespace {

// One volume and one device as a test wants them; notes what was asked.
class fake_system final : public scan_system, replaced<scan_set_system> {
 public:
  fake_system() : replaced(this) {}
  std::uint32_t set_error_mode(std::uint32_t mode) noexcept override { return std::exchange(error_mode, mode); }
  std::uint32_t volume_information(const qchar*, std::uint32_t& out_flags, std::u16string& out_name) override {
    EXPECT_EQ(error_mode, 0x8001U);
    out_flags = flags;
    out_name = file_system;
    return volume_error;
  }
  std::uint32_t drive_type(const qchar*) override { return drive; }
  qerr_t translate(std::uint32_t error) noexcept override { return error + QERR_SYSTEM_BASE; }
  std::u16string device_path(const qchar* root) override { return std::u16string(u"device of ") + root; }
  std::uint32_t make_bus_query(std::unique_ptr<scan_bus_query>& out) override {
    if (event_error == 0) out = std::make_unique<query>(*this);
    return event_error;
  }

  std::uint32_t error_mode = 3;
  std::uint32_t flags = 0, volume_error = 0, drive = SCAN_DRIVE_FIXED;
  std::u16string file_system = u"NTFS";
  std::uint32_t event_error = 0, start_error = 0, cancel_error = 0, bus = 0;
  bool answers = true;
  std::string steps;

 private:
  struct query final : scan_bus_query {
    fake_system& system;
    explicit query(fake_system& asked) : system(asked) {}
    std::uint32_t start(const std::u16string& device) noexcept override {
      system.steps += "start[" + qstr_to_utf8(device) + "]";
      return system.start_error;
    }
    bool wait(std::uint32_t timeout_ms) noexcept override {
      system.steps += "wait" + std::to_string(timeout_ms);
      return system.answers;
    }
    std::uint32_t cancel() noexcept override {
      system.steps += "cancel";
      return system.cancel_error;
    }
    [[nodiscard]] std::uint32_t bus_type() const noexcept override { return system.bus; }
  };
};

class Volumes : public ScratchTest {
 protected:
  void TearDown() override {
    cfg_CustomerConfig() = 0;
    ScratchTest::TearDown();
  }
  qerr_t ask() {
    found = {{}, 99, 99};
    return scan_get_vol_attributes(root().c_str(), &found);
  }
  fake_system system;
  scan_vol_attributes found{};
};

TEST_F(Volumes, AttributesFollowDriveFlagsAndBus) {
  system.bus = SCAN_BUS_USB;
  for (const auto& row : fixture_rows("scan/volumes.tsv")) {
    SCOPED_TRACE(row.at("what"));
    system.drive = row.number("drive");
    system.flags = row.number("flags");
    system.file_system = row.wide("file_system");
    cfg_CustomerConfig() = row.number<std::uint64_t>("config");
    EXPECT_EQ(ask(), row.number("code"));
    EXPECT_EQ(found.attributes, row.number("attributes"));
    EXPECT_EQ(found.supported, row.number("supported"));
    EXPECT_EQ(system.error_mode, 3U) << "the previous mode is back";
    EXPECT_TEXT(found.file_system, system.file_system.substr(0, SCAN_FS_NAME_UNITS));
  }
}

TEST_F(Volumes, FailuresAndTheirLines) {
  system.drive = SCAN_DRIVE_RAM;
  EXPECT_NE(logged(QLOG_SCAN, [&] { (void)ask(); }).find("Unsupported drive type 6 for '"), std::string::npos);
  system.volume_error = 21;
  EXPECT_NE(logged(QLOG_SCAN, [&] { EXPECT_EQ(ask(), QERR_SYSTEM_BASE + 21); }).find("\". GetLastError 21."),
            std::string::npos);
  faulty_provider disk;
  disk.fail(file_op::full_path, 1, QERR_PERMISSION);
  EXPECT_EQ(ask(), QERR_PERMISSION);
  EXPECT_EQ(system.error_mode, 3U);
  EXPECT_EQ(scan_is_supported_fs_type(u"ntfs"), 1U);
  EXPECT_EQ(logged(QLOG_SCAN, [] { EXPECT_EQ(scan_is_supported_fs_type(u"exFAT"), 0U); }),
            "Found unsupported fs type = exFAT\n");
}

TEST_F(Volumes, RemovableDeviceTest) {
  const std::string asked = "start[device of R:\\]wait1000";
  const struct {
    std::function<void()> given;
    std::uint32_t answer;
    std::string steps, log;
  } cases[] = {
      {[&] { system.bus = 15; }, 1, asked, ""},
      {[&] { system.bus = 14; }, 0, asked, ""},
      {[&] { system.bus = 7, system.start_error = 997; }, 1, asked, ""},
      {[&] { system.start_error = 996; }, 1, asked, ""},
      {[&] { system.start_error = 5; }, 0, "start[device of R:\\]", "Failed to define bus type for 'R:\\'. err = '5'"},
      {[&] { system.start_error = 0, system.answers = false; }, 0, asked + "cancel",
       "Timeout error for DeviceIoControl request 'R:\\'"},
      {[&] { system.cancel_error = 995; }, 0, asked + "cancel", "GetOverLappedResult failed with status '995'"},
      {[&] { system.event_error = 8; }, 0, "", "Timeout error for DeviceIoControl'8'"},
  };
  cfg_CustomerConfig() = 0x2000;
  for (const auto& one : cases) {
    system.steps.clear();
    one.given();
    std::uint32_t answer = 9;
    const std::string log = logged(QLOG_SCAN, [&] { answer = swin_check_if_device_is_removable(u"R:\\"); });
    EXPECT_EQ(answer, one.answer) << log;
    EXPECT_EQ(system.steps, one.steps);
    EXPECT_TRUE(log.find(one.log) != std::string::npos && log.empty() == one.log.empty()) << log;
  }
}

// The platform's own answers for a volume that every test machine has; asking the device never fails.
TEST_F(Volumes, PlatformAnswers) {
  scan_set_system(nullptr);
  cfg_CustomerConfig() = 0x2000;
  ASSERT_EQ(ask(), QERR_OK);
  EXPECT_GT(qstr_len(found.file_system), 0U);
  EXPECT_NE(found.attributes & ~SCAN_VOL_READ_ONLY, 0U);
  if (sep() == u'/') {
    const std::string folder = qstr_to_utf8(root());
    const std::string ask_the_system = "findmnt -n -o FSTYPE -T '" + folder + "' | tail -n 1 > '" + folder + "/type'";
    EXPECT_EQ(std::system(ask_the_system.c_str()), 0);
    EXPECT_EQ(get(at(u"type")), qstr_to_utf8(found.file_system) + "\n");
    std::u16string deep = root();
    while (deep.size() < 6000) deep += u'/' + std::u16string(200, u'd');
    ASSERT_EQ(qfile_mkdir_parents((deep + u"/x").c_str()), QERR_OK);
    scan_vol_attributes below{};
    for (const auto& path : {deep, deep + u"/New/file"}) {
      EXPECT_EQ(scan_get_vol_attributes(path.c_str(), &below), QERR_OK);
      EXPECT_TEXT(below.file_system, found.file_system);
    }
    EXPECT_EQ(scan_get_vol_attributes(u"\\\\server\\share\\folder", &below), QERR_OK);
    EXPECT_EQ(below.attributes, SCAN_VOL_REMOTE);
    EXPECT_EQ(scan_get_vol_attributes(u"/proc/self", &found), QERR_DRIVE_TYPE);
  }
}

}  // namespace
