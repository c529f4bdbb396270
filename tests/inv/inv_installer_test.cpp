#include "inv/inv_resource.h"
#include "inv/record_text.h"
#include "support/fixture_table.h"
#include "utl/utl.h"

namespace {

TEST(Manifest, VisitorStoresTheFirstDescriptionAndEndsTheWalk) {
  const struct {
    std::string bytes;
    qerr_t code;
    std::u16string expected;
  } rows[] = {{"<description>a</description>", QERR_OK, u"a"},
              {"<description></description>", QERR_OK, u""},
              {"<description>1</description><description>2</description>", QERR_OK, u"1"},
              {"<description><description>x</description>", QERR_OK, u"<description>x"},
              {"<Description>x</Description>", QERR_OK, absent},
              {"<description>x</description", QERR_OK, absent},
              {"<description", QERR_OK, absent},
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
  }
  const auto record = new_record();
  std::uint32_t stop = 0;
  for (const auto visitor : {utl_manifest_clbk, utl_res_clbk}) {
    EXPECT_EQ(visitor(16, "x", 1, 0, &stop, record.get(), 1), QERR_INVALID);
    EXPECT_EQ(visitor(16, "x", 1, 0, &stop, nullptr, sizeof(inv_cfci_t)), QERR_INVALID);
  }
}

TEST(ChopSpace, KeepsTheFirstCharacter) {
  const std::pair<std::u16string, std::u16string> rows[] = {
      {u"a \t\n\v\f\r", u"a"}, {u"   ", u" "}, {u"", u""}, {u" a b", u" a b"}, {u"a\x1f", u"a\x1f"}, {u"a\b", u"a\b"}};
  for (auto [text, expected] : rows) {
    utl_chop_space_from_end(text.data());
    EXPECT_EQ(std::u16string(text.c_str()), expected);
  }
  utl_chop_space_from_end(nullptr);
}

class Installer : public Runtime {
 protected:
  // The answer for a fixture under the name `path`; what was logged is in `log`.
  std::uint32_t answer(const char* fixture, std::u16string& path) {
    blib_bin* opened = nullptr;
    const std::u16string file = fixture_wide(std::string("images/resources/") + fixture);
    EXPECT_EQ(blib_bin_open(file.c_str(), &opened, BLIB_READ, 0), QERR_OK);
    const BlibBinOwner image(opened);
    std::uint32_t result = 99;
    log = logged(QLOG_UTL, [&] { result = utl_is_installer_cfci(path.data(), image.get(), record.get()); });
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
  std::u16string path = u"Tool.exe";
  (void)answer("manifest_wix.exe", path);
  EXPECT_EQ(log,
            "utl_is_installer_cfci - Tool.exe\nutl_is_installer_heuristic\n"
            "utl_is_installer_Heuristic - manifestDescription:WIX toolset Bootstrapper\n"
            "utl_is_installer_cfci - returns:0x1\n");
  EXPECT_EQ(text_or(record->manifest_description), u"wix toolset bootstrapper");
  log = logged(QLOG_UTL, [] { EXPECT_EQ(utl_is_installer_heuristic(nullptr, nullptr, nullptr), 0U); });
  EXPECT_EQ(log, "utl_is_installer_heuristic\nutl_is_installer_heuristic null paramter\n");
}

}  // namespace
