// What kind of file an open file is.
#include "scan/scan_filetype.h"

#include <set>
#include <string>

#include "support/image_builder.h"
#include "support/memory_file.h"
#include "support/runtime.h"

namespace {

std::set<std::u16string>& asked() {
  static std::set<std::u16string> keys;
  return keys;
}
constexpr scan_sa kScripts = {[] { return true; },
                              [](const qchar* key) {
                                asked().insert(key);
                                const std::u16string_view text(key);
                                return text == u"bat" || text == u"16bit" ? QERR_EXISTS : QERR_OK;
                              }};

class FileType : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    asked().clear();
  }
  void TearDown() override {
    scan_set_sa(nullptr);
    Runtime::TearDown();
  }
  std::uint32_t type_ = 99;
  std::uint32_t kind_ = 99;
};

TEST_F(FileType, ImagesAreToldByWidthNameAndCharacteristics) {
  struct {
    bool is_64bit;
    std::uint32_t characteristics;
    const qchar* name;
    std::uint32_t kind;
  } const cases[] = {
      {false, 0x0002, u"a.exe", SCAN_KIND_EXE},     {true, 0x2002, u"a.dll", SCAN_KIND_DLL},
      {false, 0x2000, u"a", SCAN_KIND_DLL},         {true, 0x0000, u"a.exe", SCAN_KIND_OTHER},
      {false, 0x2002, u"A.SYS", SCAN_KIND_DRIVER},  {true, 0x0000, u"a.b.Sys", SCAN_KIND_DRIVER},
      {false, 0x0002, u"a.sys.exe", SCAN_KIND_EXE}, {false, 0x0002, u"x.sys/a", SCAN_KIND_EXE},
      {false, 0x0002, u"a.", SCAN_KIND_EXE},        {false, 0x0102, u"sys", SCAN_KIND_EXE},
  };
  for (const auto& one : cases) {
    const image_layout layout{one.is_64bit};
    memory_file file(layout.build().u16(image_layout::characteristics, one.characteristics).bytes());
    for (const std::uint32_t read : {0U, 1U}) {
      EXPECT_EQ(scan_get_file_type_by_handle(&file, one.name, read, &type_, &kind_), QERR_OK);
      EXPECT_EQ(type_, one.is_64bit ? SCAN_TYPE_IMAGE64 : SCAN_TYPE_IMAGE32);
      EXPECT_EQ(kind_, one.kind) << std::string(one.name, one.name + std::u16string_view(one.name).size());
      EXPECT_EQ(file.reads != 0, read != 0) << "read instead of mapped";
    }
  }
}

TEST_F(FileType, KeptImageServesTheCaller) {
  memory_file file(image_layout{true}.build().bytes());
  blib_bin* image = nullptr;
  ASSERT_EQ(scan_get_file_type_keep_image(&file, u"a.exe", &type_, &kind_, &image), QERR_OK);
  const BlibBinByHandleOwner owner(image);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(type_, SCAN_TYPE_IMAGE64);
  EXPECT_EQ(blib_bin_section_count(image), 1U);
}

TEST_F(FileType, ArgumentsAndFaults) {
  memory_file file(image_layout{}.build().bytes());
  EXPECT_EQ(scan_get_file_type_by_handle(&file, nullptr, 0, &type_, &kind_), QERR_ARG1);
  EXPECT_EQ(scan_get_file_type_by_handle(nullptr, u"a", 0, &type_, &kind_), QERR_ARG1);
  EXPECT_EQ(type_, SCAN_TYPE_NONE);
  EXPECT_EQ(kind_, SCAN_KIND_OTHER);
  file.view_fault = QERR_NOT_FOUND;  // a file that vanished is of no type, and no error
  EXPECT_EQ(scan_get_file_type_by_handle(&file, u"a", 0, &type_, &kind_), QERR_OK);
  EXPECT_EQ(type_, SCAN_TYPE_NONE);
  file.view_fault = QERR_IO;
  EXPECT_EQ(scan_get_file_type_by_handle(&file, u"a", 0, &type_, &kind_), QERR_BAD_IMAGE);
}

TEST_F(FileType, ScriptsAreToldByTheDatabaseOnly) {
  struct {
    std::string_view bytes;
    const qchar* name;
    qerr_t code;
    const qchar* key;  // null: nothing is asked
  } const cases[] = {
      {"echo", u"\\\\s\\d.x\\a.bat", QERR_OK, u"bat"}, {"echo", u"a.txt", QERR_BAD_IMAGE, u"txt"},
      {"echo", u"bat", QERR_BAD_IMAGE, nullptr},       {"echo", u"\\\\s\\x.bat\\a", QERR_BAD_IMAGE, nullptr},
      {"MZ old", u"a.com", QERR_OK, u"16bit"},         {"", u"a.bat", QERR_OK, u"bat"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.bytes);
    memory_file file(byte_builder().text(0, one.bytes).bytes());
    scan_set_sa(nullptr);
    EXPECT_EQ(scan_get_file_type_by_handle(&file, one.name, 0, &type_, &kind_), QERR_BAD_IMAGE) << "not initialised";
    scan_set_sa(&kScripts);
    asked().clear();
    EXPECT_EQ(scan_get_file_type_by_handle(&file, one.name, 0, &type_, &kind_), one.code);
    EXPECT_EQ(type_, one.code == QERR_OK ? SCAN_TYPE_SCRIPT : SCAN_TYPE_NONE);
    EXPECT_EQ(kind_, SCAN_KIND_OTHER);
    EXPECT_EQ(asked(), one.key != nullptr ? std::set<std::u16string>{one.key} : std::set<std::u16string>{});
  }
  memory_file image(image_layout{}.build().bytes());
  EXPECT_EQ(scan_is_file_script_by_handle(&image, u"a.bat", true), 0U) << "an image is no script";
}

}  // namespace
