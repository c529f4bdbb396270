#include "inv/inv_cfci.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <tuple>
#include <vector>

#include "cfg/cfg.h"
#include "record/new_record.h"
#include "scan/scan_filetype.h"
#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using Record = InvCfciOwner;

class InformationRecord : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    qlib_set_standalone(true);
    cfg_ProdIntegrationConfig() = 0;
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

TEST_F(InformationRecord, HoldsWhatEachResourceSays) {
  using Field = qchar* inv_cfci_t::*;
  constexpr std::pair<const char*, Field> fields[] = {
      {"CompanyName", &inv_cfci_t::CompanyName},           {"FileVersion", &inv_cfci_t::FileVersion},
      {"ProductName", &inv_cfci_t::ProductName},           {"ProductVersion", &inv_cfci_t::ProductVersion},
      {"OriginalFilename", &inv_cfci_t::OriginalFilename}, {"FileDescription", &inv_cfci_t::FileDescription},
      {"InternalName", &inv_cfci_t::InternalName}};
  for (const auto& row : fixture_table("resources")) {
    const fs::path file = fixture_path(row.at("file"));
    SCOPED_TRACE(file.string());
    const Record record = gather(file);
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->installer_rule == nullptr ? "" : record->installer_rule, row.at("installer"));
    EXPECT_EQ(record->classification_flags, row.at("installer").empty() ? 0 : INV_CLASS_INSTALLER);
    for (std::size_t i = 0; i < std::size(fields); ++i) {
      std::u16string told = row.wide(fields[i].first);
      // The installer check leaves three names of an exe in lower case.
      if (i >= 4 && qstr_equal_nocase(file.extension().u16string().c_str(), u".exe")) qstr_lower_ascii(told.data());
      EXPECT_EQ(text((*record).*fields[i].second), told) << fields[i].first;
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
    const Record record = gather(fixture_path(file));
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
    EXPECT_EQ(qcksum_compare(&record->md5, &md5), with_md5);
    EXPECT_EQ(record->md5.length, with_md5 * QCKSUM_MD5_BIN_LEN);
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
  // What is installed and enabled, and the description: only the installer check folds it.
  const std::tuple<std::uint64_t, std::uint64_t, std::u16string_view> rows[] = {
      {0, base | installer | details, u""},
      {base, installer | details, u""},
      {base, base | installer, u""},
      {base, base | details, u"Product Setup"},
      {base, base | installer | details, u"product setup"}};
  for (const auto& [installed, enabled, description] : rows) {
    cfg_FeaturesInstalled() = installed;
    cfg_FeaturesEnabled() = enabled;
    const Record record = gather(fixture_path("images/resources/setup_description.exe"));
    ASSERT_EQ(code, QERR_OK);
    EXPECT_EQ(record->sha1.length, QCKSUM_SHA1_BIN_LEN);
    EXPECT_EQ(text(record->FileDescription), description) << enabled;
    EXPECT_EQ(record->file_size != 0, !description.empty()) << enabled;
    EXPECT_EQ(record->classification_flags, description.starts_with(u'p') ? INV_CLASS_INSTALLER : 0) << enabled;
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
  const fs::path image = fixture_path("images/resources/all_keys.exe");
  const std::tuple<fs::path, file_op, qerr_t> rows[] = {
      {put(u"text.exe", "no image"), file_op::count, QERR_BAD_IMAGE},
      {put(u"empty.dll", ""), file_op::count, QERR_BAD_IMAGE},
      {at(u"missing.exe"), file_op::count, QERR_NOT_FOUND},
      {fixture_path("images/headers/e_magic_ZM.exe"), file_op::count, QERR_BAD_IMAGE},
      {image, file_op::open, QERR_PERMISSION},
      {image, file_op::info, QERR_PERMISSION},
      {image, file_op::view, QERR_BAD_IMAGE}};
  for (const auto& [path, fails, expected] : rows) {
    SCOPED_TRACE(path.string());
    faulty_provider disk;
    if (fails != file_op::count) disk.fail(fails, 1, QERR_PERMISSION);
    EXPECT_EQ(gather(path), nullptr);
    EXPECT_EQ(code, expected);
    EXPECT_EQ(time, -1);
  }
}

// A script has no open image; one that opens after all is read as such.
TEST_F(InformationRecord, OfAScriptIsReadByItsPath) {
  constexpr scan_sa all_scripts = {[] { return true; }, [](const qchar*) { return QERR_EXISTS; }};
  const replaced<scan_set_sa> database(&all_scripts);
  faulty_provider disk;
  disk.fail(file_op::view, 1, QERR_PERMISSION);
  const Record record = gather(fixture_path("images/resources/all_keys.exe"));
  ASSERT_EQ(code, QERR_OK);
  EXPECT_EQ(record->type_flags, INV_TYPE_SCRIPT);
  EXPECT_EQ(text(record->ProductName), u"Fixture Tool");
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
  EXPECT_EQ(qcksum_compare(&record->sha1, &sha1), 1U);
  EXPECT_EQ(text(record->ProductName), u"Fixture Tool");
  EXPECT_EQ(record->file_size, bytes.size());
}

TEST_F(InformationRecord, ResourceDataOfAPath) {
  const std::pair<const char*, qerr_t> rows[] = {{"images/resources/all_keys.exe", QERR_OK},
                                                 {"images/bare32.exe", QERR_NOT_FOUND},  // the last step's code
                                                 {"images/headers/e_magic_ZM.exe", QERR_BAD_IMAGE}};
  for (const auto& [file, expected] : rows) {
    const Record record = new_record();
    EXPECT_EQ(inv_get_resource_data(fixture_wide(file).c_str(), record.get()), expected) << file;
    EXPECT_EQ(text(record->ProductName), expected == QERR_OK ? u"Fixture Tool" : u"");
  }
}

}  // namespace
