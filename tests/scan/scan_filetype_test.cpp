// What kind of file an open file is.
#include "scan/scan_filetype.h"

#include <set>
#include <string>

#include "support/fixture_table.h"
#include "support/image_builder.h"
#include "support/memory_file.h"
#include "support/replaced.h"
#include "support/runtime.h"

namespace {

std::set<std::u16string> asked;
constexpr scan_sa scripts = {[] { return true; },
                             [](const qchar* key) {
                               asked.insert(key);
                               const std::u16string_view text(key);
                               return text == u"bat" || text == u"16bit" ? QERR_EXISTS : QERR_OK;
                             }};

class FileType : public Runtime {
 protected:
  qerr_t classify(memory_file& file, const qchar* name, std::uint32_t read = 0) {
    return scan_get_file_type_by_handle(&file, name, read, &type_, &kind_);
  }
  std::uint32_t type_ = 99;
  std::uint32_t kind_ = 99;
};

TEST_F(FileType, ImagesAreToldByWidthNameAndCharacteristics) {
  for (const auto& row : fixture_rows("scan/images.tsv")) {
    const image_layout layout{row.at("bits") == "64"};
    const std::uint32_t characteristics = row.number("characteristics");
    memory_file file(layout.build().u16(image_layout::characteristics, characteristics).bytes());
    for (const std::uint32_t read : {0U, 1U}) {
      EXPECT_EQ(classify(file, row.wide("name").c_str(), read), QERR_OK);
      EXPECT_EQ(type_, row.number("type"));
      EXPECT_EQ(kind_, row.number("kind")) << row.at("name");
      EXPECT_EQ(file.reads != 0, read != 0) << "read instead of mapped";
    }
  }
}

TEST_F(FileType, ArgumentsAndFaults) {
  memory_file file(image_layout{}.build().bytes());
  EXPECT_EQ(scan_get_file_type_by_handle(nullptr, u"a", 0, &type_, &kind_), QERR_ARG1);
  EXPECT_EQ(classify(file, nullptr), QERR_ARG1);
  EXPECT_EQ(type_, SCAN_TYPE_NONE);
  EXPECT_EQ(kind_, SCAN_KIND_OTHER);
  file.view_fault = QERR_NOT_FOUND;  // a file that vanished is of no type, and no error
  EXPECT_EQ(classify(file, u"a"), QERR_OK);
  EXPECT_EQ(type_, SCAN_TYPE_NONE);
  file.view_fault = QERR_IO;
  EXPECT_EQ(classify(file, u"a"), QERR_BAD_IMAGE);
}

TEST_F(FileType, ScriptsAreToldByTheDatabaseOnly) {
  const struct {
    std::string_view bytes;
    const qchar* name;
    qerr_t code;
    std::set<std::u16string> keys;
  } cases[] = {
      {"echo", u"\\\\s\\d.x\\a.bat", QERR_OK, {u"bat"}},
      {"echo", u"a.txt", QERR_BAD_IMAGE, {u"txt"}},
      {"echo", u"\\\\s\\x.bat\\a", QERR_BAD_IMAGE, {}},
      {"MZ old", u"a.com", QERR_OK, {u"16bit"}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.bytes);
    memory_file file(byte_builder().text(0, one.bytes).bytes());
    EXPECT_EQ(classify(file, one.name), QERR_BAD_IMAGE) << "without a database";
    const replaced<scan_set_sa> database(&scripts);
    asked.clear();
    EXPECT_EQ(classify(file, one.name), one.code);
    EXPECT_EQ(type_, one.code == QERR_OK ? 2U : 0U);
    EXPECT_EQ(scan_is_file_script_by_handle(&file, one.name, false), one.code == QERR_OK ? 1U : 0U);
    EXPECT_EQ(asked, one.keys);
    EXPECT_EQ(scan_is_file_script_by_handle(&file, u"a.bat", true), 0U) << "an image is no script";
  }
}

}  // namespace
