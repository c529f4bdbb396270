#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "common/qlib/qerr.h"
#include "inv/inv_resource.h"
#include "inv/record_text.h"
#include "utl/utl.h"

namespace {

TEST(Manifest, DescriptionStandsBetweenItsTags) {
  const struct {
    const qchar* manifest;
    std::u16string expected;
  } rows[] = {{u"<a><description>My tool</description></a>", u"My tool"},
              {u"<description></description>", u""},
              {u"</description><description>x</description>", u"x"},
              {u"<description>1</description><description>2</description>", u"1"},
              {u"<description><description>x</description>", u"<description>x"},
              {u"<Description>x</Description>", absent},
              {u"<description>x", absent},
              {u"<description>x</description", absent},
              {u"<description", absent},
              {u"", absent},
              {nullptr, absent}};
  for (const auto& row : rows) {
    const QmemPtr<qchar> got(utl_get_ManifestDescription(row.manifest));
    EXPECT_EQ(text_or(got.get()), row.expected);
  }
}

TEST(Manifest, VisitorStoresTheDescriptionAndEndsTheWalk) {
  const struct {
    std::string bytes;
    qerr_t code;
    std::u16string expected;
  } rows[] = {{"<description>a</description>", QERR_OK, u"a"},
              {"<description>a</description>\xE9", QERR_LOW_MEMORY, u"before"},
              {std::string("x\0<description>a</description>", 30), QERR_OK, absent},
              {"", QERR_OK, absent}};
  for (const auto& row : rows) {
    const auto record = new_record();
    record->manifest_description = qstr_dup(u"before");
    std::uint32_t stop = 0;
    const auto size = static_cast<std::uint32_t>(row.bytes.size());
    EXPECT_EQ(utl_manifest_clbk(24, row.bytes.data(), size, 0, &stop, record.get(), sizeof(inv_cfci_t)), row.code);
    EXPECT_EQ(text_or(record->manifest_description), row.expected);
    EXPECT_EQ(stop, row.code == QERR_OK ? 1U : 0U);
    EXPECT_EQ(utl_manifest_clbk(24, row.bytes.data(), size, 0, &stop, record.get(), 1), QERR_INVALID);
    EXPECT_EQ(utl_res_clbk(16, row.bytes.data(), size, 0, &stop, record.get(), 1), QERR_INVALID);
    EXPECT_EQ(utl_res_clbk(16, row.bytes.data(), size, 0, &stop, nullptr, sizeof(inv_cfci_t)), QERR_INVALID);
  }
}

TEST(ChopSpace, KeepsTheFirstCharacter) {
  const std::pair<std::u16string, std::u16string> rows[] = {
      {u"a \t\n\v\f\r", u"a"},  {u" ", u" "},         {u"   ", u" "},  {u"", u""}, {u" a b", u" a b"},
      {u"a\u00a0", u"a\u00a0"}, {u"a\x1f", u"a\x1f"}, {u"a\b", u"a\b"}};
  for (auto [text, expected] : rows) {
    utl_chop_space_from_end(text.data());
    EXPECT_EQ(std::u16string(text.c_str()), expected);
  }
  utl_chop_space_from_end(nullptr);
}

class Installer : public RuntimeTest {
 protected:
  // The answer for a fixture under the name `path`; what was logged is in `log`.
  std::uint32_t answer(const char* fixture, std::u16string& path) {
    const std::u16string file =
        (std::filesystem::path(std::getenv("TESSIVATOR_FIXTURES")) / "images/resources" / fixture).u16string();
    blib_bin* opened = nullptr;
    EXPECT_EQ(blib_bin_open(file.c_str(), &opened, BLIB_READ, 0), QERR_OK);
    const BlibBinOwner image(opened);
    std::uint32_t result = 99;
    log = printed([&] { result = utl_is_installer_cfci(path.data(), image.get(), record.get()); });
    return result;
  }
  InvCfciOwner record = new_record();
  std::string log;
};

TEST_F(Installer, IsToldByTheNameThatTheFileHasNow) {
  const struct {
    const char* fixture;
    std::u16string path;
    std::uint32_t answer;
    std::u16string path_after;
    std::u16string description;
  } rows[] = {
      {"setup_description.exe", u"C:\\A\\Setup.EXE", 1, u"c:\\a\\setup.exe", u"product setup"},
      {"setup_description.exe", u"C:\\A\\Setup.dll", 0, u"C:\\A\\Setup.dll", u"Product Setup"},
      {"setup_description.exe", u"C:\\A\\Setup", 0, u"C:\\A\\Setup", u"Product Setup"},
      {"all_keys.exe", u"Tool.exe", 0, u"Tool.exe", u"fixture tool"},
      {"manifest_setup.exe", u"Tool.dll", 1, u"Tool.dll", absent},
  };
  for (auto row : rows) {
    SCOPED_TRACE(row.fixture);
    record = new_record();
    EXPECT_EQ(answer(row.fixture, row.path), row.answer);
    EXPECT_EQ(row.path, row.path_after);
    EXPECT_EQ(text_or(record->FileDescription), row.description);
  }
}

TEST_F(Installer, LogsItsSteps) {
  qlog_set_format(QLOG_COLUMN_LEVEL);
  ASSERT_EQ(qlog_set_logtype(u"UTL=127"), QERR_OK);
  std::u16string path = u"Tool.exe";
  (void)answer("manifest_wix.exe", path);
  EXPECT_EQ(log,
            "  INFO: utl_is_installer_cfci - Tool.exe\n"
            "  INFO: utl_is_installer_heuristic\n"
            "  DETAIL: utl_is_installer_Heuristic - manifestDescription:WIX toolset Bootstrapper\n"
            "  INFO: utl_is_installer_cfci - returns:0x1\n");
  EXPECT_EQ(text_or(record->manifest_description), u"wix toolset bootstrapper");
  log = printed([] { EXPECT_EQ(utl_is_installer_heuristic(nullptr, nullptr, nullptr), 0U); });
  EXPECT_EQ(log, "  INFO: utl_is_installer_heuristic\n  ERROR: utl_is_installer_heuristic null paramter\n");
}

}  // namespace
