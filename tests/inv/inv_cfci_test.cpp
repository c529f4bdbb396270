#include "inv/inv_cfci.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <tuple>
#include <vector>

#include "cfg/cfg.h"
#include "inv/record.h"
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
  if (qstr_equal_nocase(file.extension().u16string().c_str(), u".exe")) qstr_lower_ascii(value.data());
  return value;
}

TEST_F(InformationRecord, HoldsWhatEachResourceSays) {
  const auto rows = fixture_table("resources");
  ASSERT_GT(rows.size(), 60U);
  for (const auto& row : rows) {
    const fs::path file = fixture_path(row.at("file"));
    SCOPED_TRACE(file.string());
    const Record record = gather(file);
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->classification_flags, row.at("isInstaller") == "yes" ? INV_CLASS_INSTALLER : 0);
    const std::pair<const char*, const qchar*> fields[] = {
        {"CompanyName", record->CompanyName},           {"FileVersion", record->FileVersion},
        {"ProductName", record->ProductName},           {"ProductVersion", record->ProductVersion},
        {"OriginalFilename", record->OriginalFilename}, {"FileDescription", record->FileDescription},
        {"InternalName", record->InternalName}};
    for (std::size_t i = 0; i < std::size(fields); ++i) {
      const std::u16string told = fixture_text(row.at(fields[i].first));
      EXPECT_EQ(text(fields[i].second), i < 4 ? told : folded(file, told)) << fields[i].first;
    }
    EXPECT_EQ(record->is_signed, 0U);
    EXPECT_EQ(record->file_size, fs::file_size(file));
  }
}

TEST_F(InformationRecord, HasTypeKindAndSigned) {
  using Told = std::tuple<std::uint16_t, std::uint16_t, std::uint32_t>;
  const std::pair<const char*, Told> rows[] = {{"images/lib64_rsa.dll", {INV_TYPE_IMAGE64, 1, 1}},
                                               {"images/driver32.sys", {INV_TYPE_IMAGE32, 4, 0}},
                                               {"images/cert_table/security_size_0.exe", {INV_TYPE_IMAGE32, 2, 0}},
                                               {"images/cert_table/security_address_0.exe", {INV_TYPE_IMAGE32, 2, 0}}};
  for (const auto& [file, told] : rows) {
    const Record record = gather(fs::path(fixture_path(file)));
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(Told(record->type_flags, record->image_kind, record->is_signed), told) << file;
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
  }
}

TEST_F(InformationRecord, HasTheDigestsThatAreAskedFor) {
  const fs::path file = fixture_path("images/exe32.exe");
  const std::string bytes = file_text(file);
  qcksum md5{QCKSUM_MD5, QCKSUM_MD5_BIN_LEN, {}};
  ASSERT_EQ(qcksum_buf_md5(bytes.data(), bytes.size(), md5.value), QERR_OK);
  for (const std::uint32_t with_md5 : {0U, 1U}) {
    cfg_ProdIntegrationConfig() = with_md5;
    Record record = gather(file, 1);
    EXPECT_EQ(hex(record->md5), hex(with_md5 != 0 ? md5 : qcksum{}));
    EXPECT_EQ(record->sha1.length + record->sha256.length, QCKSUM_SHA1_BIN_LEN + QCKSUM_SHA256_BIN_LEN);
    record = gather(file, 0);
    EXPECT_EQ(record->sha1.length + record->sha256.length + record->md5.length, 0);
  }
}

TEST_F(InformationRecord, OutsideStandaloneModeStepsNeedTheirFeatures) {
  qlib_set_standalone(false);
  constexpr std::uint64_t base = std::uint64_t{1} << 40;
  constexpr std::uint64_t installer = std::uint64_t{1} << 41;
  constexpr std::uint64_t details = std::uint64_t{1} << 42;
  const struct {
    std::uint64_t installed, enabled;
    bool has_details, is_installer;
  } rows[] = {{0, base | installer | details, false, false},
              {base, installer | details, false, false},
              {base, base | installer, false, false},
              {base, base | details, true, false},
              {base, base | installer | details, true, true}};
  for (const auto& row : rows) {
    cfg_FeaturesInstalled() = row.installed;
    cfg_FeaturesEnabled() = row.enabled;
    const Record record = gather(fs::path(fixture_path("images/resources/setup_description.exe")));
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->sha1.length, QCKSUM_SHA1_BIN_LEN);
    EXPECT_EQ(record->file_size != 0, row.has_details) << row.enabled;
    EXPECT_EQ(record->classification_flags, row.is_installer ? INV_CLASS_INSTALLER : 0) << row.enabled;
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

TEST_F(InformationRecord, OtherFilesAndThoseThatFailHaveNone) {
  const fs::path image = fs::path(fixture_path("images/resources/all_keys.exe"));
  const struct {
    fs::path path;
    file_op fails;
    qerr_t expected;
  } rows[] = {{put(u"text.exe", "no image"), file_op::count, QERR_BAD_IMAGE},
              {put(u"empty.dll", ""), file_op::count, QERR_BAD_IMAGE},
              {at(u"missing.exe"), file_op::count, QERR_NOT_FOUND},
              {fs::path(fixture_path("images/headers/e_magic_ZM.exe")), file_op::count, QERR_BAD_IMAGE},
              {image, file_op::open, QERR_PERMISSION},
              {image, file_op::info, QERR_PERMISSION},
              {image, file_op::view, QERR_BAD_IMAGE}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path.string());
    faulty_provider disk;
    if (row.fails != file_op::count) disk.fail(row.fails, 1, QERR_PERMISSION);
    EXPECT_EQ(gather(row.path), nullptr);
    EXPECT_EQ(code, row.expected);
    EXPECT_EQ(time, -1);
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
  const std::pair<const char*, qerr_t> rows[] = {{"images/resources/all_keys.exe", QERR_OK},
                                                 {"images/bare32.exe", QERR_NOT_FOUND},  // the last step's code
                                                 {"images/headers/e_magic_ZM.exe", QERR_BAD_IMAGE}};
  for (const auto& [file, expected] : rows) {
    const Record record = new_record();
    EXPECT_EQ(inv_get_resource_data(fs::path(fixture_path(file)).u16string().c_str(), record.get()), expected) << file;
    EXPECT_EQ(text(record->ProductName), expected == QERR_OK ? u"Fixture Tool" : u"");
  }
}

}  // namespace
