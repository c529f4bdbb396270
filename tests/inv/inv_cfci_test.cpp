#include "inv/inv_cfci.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

#include "cfg/cfg.h"
#include "inv/record_text.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using Record = InvCfciOwner;

std::string hex(const qcksum& digest) {
  qchar text[QCKSUM_SHA256_TEXT] = {};
  (void)qcksum_to_qstr(text, sizeof(text), &digest);
  return qstr_to_utf8(text);
}

class InformationRecord : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    qlib_set_standalone(true);
  }
  void TearDown() override {
    cfg_ProdIntegrationConfig() = 0;
    cfg_FeaturesInstalled() = 0;
    cfg_FeaturesEnabled() = 0;
    ScratchTest::TearDown();
  }
  Record gather(const fs::path& path, std::uint32_t compute_md5 = 1) {
    inv_cfci_t* record = nullptr;
    code = inv_get_cfci_alloc(path.u16string().c_str(), &record, &time, compute_md5);
    EXPECT_EQ(record != nullptr, code == QERR_OK);
    return Record(record);
  }
  qerr_t code = 0;
  std::int64_t time = -1;
};

std::u16string text(const qchar* value) { return value == nullptr ? std::u16string() : std::u16string(value); }

// The installer check leaves three names of an exe in lower case.
std::u16string folded(const fs::path& file, std::u16string value) {
  if (file.extension() == ".exe") qstr_lower_ascii(value.data());
  return value;
}

TEST_F(InformationRecord, HoldsWhatEachResourceSays) {
  const auto rows = fixture_table("resources");
  ASSERT_GT(rows.size(), 60U);
  for (const auto& row : rows) {
    const fs::path file = fixture_path(row.at("file"));
    const auto told = [&](const char* column) { return fixture_text(row.at(column)); };
    SCOPED_TRACE(file.string());
    const Record record = gather(file);
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->classification_flags, row.at("isInstaller") == "yes" ? INV_CLASS_INSTALLER : 0);
    EXPECT_EQ(text(record->CompanyName), told("CompanyName"));
    EXPECT_EQ(text(record->FileVersion), told("FileVersion"));
    EXPECT_EQ(text(record->ProductName), told("ProductName"));
    EXPECT_EQ(text(record->ProductVersion), told("ProductVersion"));
    EXPECT_EQ(text(record->OriginalFilename), folded(file, told("OriginalFilename")));
    EXPECT_EQ(text(record->FileDescription), folded(file, told("FileDescription")));
    EXPECT_EQ(text(record->InternalName), folded(file, told("InternalName")));
    EXPECT_EQ(record->is_signed, 0U);
    EXPECT_EQ(record->file_size, fs::file_size(file));
  }
}

TEST_F(InformationRecord, HasTypeKindAndSigned) {
  const struct {
    const char* file;
    std::uint16_t type;
    std::uint16_t kind;
    std::uint32_t is_signed;
  } rows[] = {{"images/exe32.exe", INV_TYPE_IMAGE32, 2, 0},
              {"images/exe64_rsa.exe", INV_TYPE_IMAGE64, 2, 1},
              {"images/lib32_ec.dll", INV_TYPE_IMAGE32, 1, 1},
              {"images/lib64.dll", INV_TYPE_IMAGE64, 1, 0},
              {"images/driver64.sys", INV_TYPE_IMAGE64, 4, 0},
              {"images/cert_table/security_size_0.exe", INV_TYPE_IMAGE32, 2, 0},
              {"images/cert_table/security_address_0.exe", INV_TYPE_IMAGE32, 2, 0},
              {"images/bare64.exe", INV_TYPE_IMAGE64, 2, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.file);
    const Record record = gather(fs::path(fixture_path(row.file)));
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->type_flags, row.type);
    EXPECT_EQ(record->image_kind, row.kind);
    EXPECT_EQ(record->is_signed, row.is_signed);
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
    EXPECT_EQ(record->status_flags, 0U);
  }
}

TEST_F(InformationRecord, HasTheDigestsThatAreAskedFor) {
  const fs::path file = fixture_path("tree/tools/tool32.exe");
  const auto rows = fixture_table("tree");
  const auto told =
      std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.at("file") == "tools/tool32.exe"; });
  ASSERT_NE(told, rows.end());
  Record record = gather(file, 1);
  EXPECT_EQ(hex(record->sha1), told->at("SHA1"));
  EXPECT_EQ(hex(record->sha256), told->at("SHA256"));
  EXPECT_EQ(record->md5.type, 0);
  cfg_ProdIntegrationConfig() = 1;
  record = gather(file, 1);
  const std::string bytes = file_text(file);
  qcksum md5{QCKSUM_MD5, QCKSUM_MD5_BIN_LEN, {}};
  ASSERT_EQ(qcksum_buf_md5(bytes.data(), bytes.size(), md5.value), QERR_OK);
  EXPECT_EQ(hex(record->sha256), told->at("SHA256"));
  EXPECT_EQ(hex(record->md5), hex(md5));
  record = gather(file, 0);
  EXPECT_EQ(record->sha1.length + record->sha256.length + record->md5.length, 0);
}

TEST_F(InformationRecord, OutsideStandaloneModeStepsNeedTheirFeatures) {
  qlib_set_standalone(false);
  const fs::path file = fs::path(fixture_path("images/resources/setup_description.exe"));
  constexpr std::uint64_t base = std::uint64_t{1} << 40;
  constexpr std::uint64_t installer = std::uint64_t{1} << 41;
  constexpr std::uint64_t details = std::uint64_t{1} << 42;
  const struct {
    const char* what;
    std::uint64_t installed;
    std::uint64_t enabled;
    bool has_details;
    bool is_installer;
  } rows[] = {{"nothing", 0, 0, false, false},
              {"not installed", 0, base | installer | details, false, false},
              {"not enabled", base, installer | details, false, false},
              {"no details", base, base | installer, false, false},
              {"details", base, base | details, true, false},
              {"all", base, base | installer | details, true, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    cfg_FeaturesInstalled() = row.installed;
    cfg_FeaturesEnabled() = row.enabled;
    const Record record = gather(file);
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->sha1.length, QCKSUM_SHA1_BIN_LEN);
    EXPECT_EQ(record->file_size != 0, row.has_details);
    EXPECT_EQ(record->classification_flags, row.is_installer ? INV_CLASS_INSTALLER : 0);
    // Only the installer check folds the names.
    EXPECT_EQ(text(record->FileDescription), !row.has_details   ? u""
                                             : row.is_installer ? u"product setup"
                                                                : u"Product Setup");
  }
}

TEST_F(InformationRecord, TimeIsTheLaterOfCreationAndLastWrite) {
  const fs::path file = fs::path(root()) / "a.exe";
  fs::copy_file(fs::path(fixture_path("images/bare32.exe")), file);
  for (const int hours : {-48, 48}) {
    fs::last_write_time(file, fs::file_time_type::clock::now() + std::chrono::hours(hours));
    (void)gather(file);
    qfile_info info{};
    ASSERT_EQ(qfile_get_info_by_name(file.u16string().c_str(), &info), QERR_OK);
    EXPECT_EQ(time, std::max(info.creation_time, info.last_write_time));
    EXPECT_EQ(time == info.last_write_time, info.last_write_time >= info.creation_time);
  }
}

TEST_F(InformationRecord, OtherFilesHaveNone) {
  const struct {
    fs::path path;
    qerr_t expected;
  } rows[] = {{put(u"text.exe", "no image"), QERR_BAD_IMAGE},
              {put(u"empty.dll", ""), QERR_BAD_IMAGE},
              {at(u"missing.exe"), QERR_NOT_FOUND},
              {fs::path(fixture_path("images/headers/e_magic_ZM.exe")), QERR_BAD_IMAGE}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path.string());
    EXPECT_EQ(gather(row.path), nullptr);
    EXPECT_EQ(code, row.expected);
    EXPECT_EQ(time, -1);
  }
  inv_cfci_t* record = nullptr;
  EXPECT_EQ(inv_get_cfci_alloc(nullptr, &record, nullptr, 1), QERR_ARG1);
  EXPECT_EQ(inv_get_cfci_alloc(u"a", nullptr, nullptr, 1), QERR_ARG2);
  inv_free_cfci(nullptr);
}

TEST_F(InformationRecord, FaultsOfTheDiskAreTold) {
  const fs::path file = fs::path(fixture_path("images/resources/all_keys.exe"));
  const struct {
    file_op op;
    qerr_t expected;
  } rows[] = {{file_op::open, QERR_PERMISSION}, {file_op::info, QERR_PERMISSION}, {file_op::view, QERR_BAD_IMAGE}};
  for (const auto& row : rows) {
    faulty_provider disk;
    disk.fail(row.op, 1, QERR_PERMISSION);
    (void)gather(file);
    EXPECT_EQ(code, row.expected);
  }
}

TEST_F(InformationRecord, ReadThatFailsHalfWayKeepsTheRecord) {
  std::string bytes = file_text(fixture_path("images/resources/all_keys.exe"));
  bytes.resize(std::size_t{300} * 1024, 'x');
  const fs::path file = put(u"half.exe", bytes);
  faulty_provider disk;
  disk.fail(file_op::read, 2, QERR_IO);
  const Record record = gather(file);
  ASSERT_EQ(code, QERR_OK);
  qcksum sha1{QCKSUM_SHA1, QCKSUM_SHA1_BIN_LEN, {}};
  ASSERT_EQ(qcksum_buf_sha1(bytes.data(), std::size_t{256} * 1024, sha1.value), QERR_OK);
  EXPECT_EQ(hex(record->sha1), hex(sha1));
  EXPECT_EQ(text(record->ProductName), u"Fixture Tool");
  EXPECT_EQ(record->file_size, bytes.size());
}

TEST_F(InformationRecord, ResourceDataOfAPath) {
  const Record record = new_record();
  const std::u16string path = (fs::path(fixture_path("images/resources/all_keys.exe"))).u16string();
  EXPECT_EQ(inv_get_resource_data(path.c_str(), record.get()), QERR_OK);
  EXPECT_EQ(text(record->ProductName), u"Fixture Tool");
  EXPECT_EQ(text(record->OriginalFilename), u"tool.exe");
  // The last step's code: an image without a resource section, and a file that is no image.
  const std::u16string bare = (fs::path(fixture_path("images/bare32.exe"))).u16string();
  EXPECT_EQ(inv_get_resource_data(bare.c_str(), new_record().get()), QERR_NOT_FOUND);
  const std::u16string damaged = (fs::path(fixture_path("images/headers/e_magic_ZM.exe"))).u16string();
  EXPECT_EQ(inv_get_resource_data(damaged.c_str(), new_record().get()), QERR_BAD_IMAGE);
}

}  // namespace
