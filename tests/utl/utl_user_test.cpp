#include "utl/utl_user.h"

#include <gmock/gmock.h>

#include <new>
#include <optional>
#include <tuple>

#include "common/qlib/qmem.h"
#include "support/faulty_provider.h"
#include "support/scratch.h"
#include "utl/utl_system.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Text = std::optional<std::u16string>;
using Answer = std::pair<qerr_t, Text>;

Text taken(qchar* text) {
  const QmemPtr<qchar> owner(text);
  return text == nullptr ? Text() : Text(text);
}

// What the function returns and hands out.
Answer answer(qerr_t (*function)(const qchar*, qchar**) noexcept, const std::u16string& path) {
  qchar* text = nullptr;
  const qerr_t code = function(path.c_str(), &text);
  return {code, taken(text)};
}
Answer long_name(const std::u16string& path) {
  return answer([](const qchar* of, qchar** out) noexcept { return utl_get_long_name_alloc(of, out, 0); }, path);
}
Answer full_long_name(const std::u16string& path) { return answer(utl_get_full_long_name_alloc, path); }
Answer volume(const std::u16string& path) { return answer(utl_get_volume_path_alloc, path); }
Answer install_directory() {
  return answer([](const qchar*, qchar** out) noexcept { return utl_get_install_dir_alloc(out); }, u"");
}

// Answers as told; what it is not told about goes to the platform.
class fake_system final : public utl_system, replaced<utl_set_system> {
 public:
  fake_system() : replaced(this) {}
  std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) override {
    const std::uint32_t error = buffer == nullptr ? size_error : form_error;
    return error != 0 ? error : utl_platform_system().long_name(path, buffer, units);
  }
  qerr_t translate(std::uint32_t error) noexcept override { return error + QERR_SYSTEM_BASE; }
  qerr_t volume_path(const qchar* path, std::u16string& out) override {
    if (volume_code == QERR_LOW_MEMORY) throw std::bad_alloc();
    out = path;
    return volume_code;
  }
  qerr_t registry_text(const qchar*, const qchar*, qchar* buffer, std::uint32_t& bytes) noexcept override {
    bytes = static_cast<std::uint32_t>((value.size() + 1) * sizeof(qchar));
    if (buffer == nullptr) return QERR_OK;
    if (value_code == QERR_OK) value.copy(buffer, value.size());
    return value_code;
  }
  std::uint32_t size_error = 0, form_error = 0;
  qerr_t volume_code = 0, value_code = 0;
  std::u16string value;
};

using Paths = ScratchTest;

TEST_F(Paths, SplitBeforeWhatDoesNotExist) {
  put(u"there/file");
  const std::tuple<std::u16string, Text, Text> cases[] = {
      {at(u"there/file"), at(u"there/file"), {}},
      {at(u"there/New"), at(u"there"), u"New"},
      {at(u"there/New/file.txt"), at(u"there"), at(u"New/file.txt").substr(root().size() + 1)},
      {at(u"there/New/"), at(u"there"), u"New" + std::u16string(1, sep())},
      {std::u16string(1, sep()) + u"no-such-name-here", {}, {}},
      {u"\\\\no-such-server-here", {}, {}},
      {u"", {}, {}},
  };
  for (const auto& [path, existing, remainder] : cases) {
    qchar* first = nullptr;
    qchar* rest = nullptr;
    EXPECT_EQ(utl_split_existing_path(path.c_str(), &first, &rest), QERR_OK);
    EXPECT_EQ(taken(first), existing) << qstr_to_utf8(path);
    EXPECT_EQ(taken(rest), remainder) << qstr_to_utf8(path);
  }
}

TEST_F(Paths, LongNames) {
  const std::u16string path = put(u"there/file");
  const std::u16string root_name = sep() == u'\\' ? u"C:\\no-such-name-here" : u"/";  // no separator is doubled
  for (const std::u16string& name : {path, at(u"there/New/file.txt"), std::u16string(u"no-such-name-here"), root_name})
    EXPECT_EQ(long_name(name), Answer(QERR_OK, name)) << qstr_to_utf8(name);
  EXPECT_EQ(long_name(u"C:"), Answer(QERR_OK, sep() == u'\\' ? u"C:\\" : u"C:"));
  fake_system system;
  system.size_error = 7;
  EXPECT_THAT(logged(QLOG_UTL, [&] { EXPECT_EQ(long_name(path), Answer(QERR_OK, path)); }),
              HasSubstr("GetLongPathName() failed for: file " + qstr_to_utf8(path) + ": err 100007 (0x186a7): "));
  system.size_error = 0;
  system.form_error = 1450;
  EXPECT_EQ(long_name(path), Answer(1450, {})) << "untranslated";
  EXPECT_EQ(full_long_name(path), Answer(QERR_OK, path)) << "the full path stands in";
}

TEST_F(Paths, FullLongNames) {
  put(u"there/file");
  EXPECT_EQ(full_long_name(at(u"there/../there/./file")), Answer(QERR_OK, at(u"there/file")));
  faulty_provider disk;
  for (const std::uint32_t call : {1U, 2U}) {
    disk.fail(file_op::full_path, call, QERR_PERMISSION);
    EXPECT_EQ(full_long_name(u"x"), Answer(QERR_PERMISSION, {}));
  }
  const std::u16string longer = u"a-name-longer-than-what-is-left/" + std::u16string(4000, u'/') + u"../x";
  disk.fail(file_op::full_path, 2, QERR_NOT_FOUND);
  EXPECT_EQ(full_long_name(longer), Answer(QERR_OK, longer)) << "not found: the path as it was given";
}

TEST_F(Paths, VolumeOfAPath) {
  const Answer here = volume(at(u"New/file"));
  ASSERT_TRUE(here.second.has_value());
  EXPECT_TRUE(root().starts_with(*here.second));
  std::vector<std::pair<std::u16string, const char16_t*>> rows = {
      {u"\\\\server\\share\\dir\\file", u"\\\\server\\share\\"},
      {u"\\\\?\\UNC\\server\\share\\dir", u"\\\\?\\UNC\\server\\share\\"},
      {sep() == u'\\' ? u"C:" : u"/", sep() == u'\\' ? u"C:\\" : u"/"}};
  if (sep() == u'/') {  // the deepest part that exists decides
    std::filesystem::create_directory_symlink("/proc", at(u"to-proc"));
    rows.insert(rows.end(), {{u"/proc", u"/proc"}, {u"/proc/no/thing", u"/proc"}, {at(u"to-proc/self"), u"/proc"}});
  }
  for (const auto& [path, expected] : rows) EXPECT_EQ(volume(path), Answer(QERR_OK, expected)) << qstr_to_utf8(path);
  EXPECT_EQ(volume(u"\\\\server"), Answer(QERR_INVALID, {}));
  fake_system system;
  EXPECT_EQ(volume(at(u"New")), Answer(QERR_OK, at(u"New"))) << "the system is asked for that very path";
  for (const qerr_t code : {QERR_PERMISSION, QERR_LOW_MEMORY}) {
    system.volume_code = code;
    EXPECT_EQ(volume(at(u"New")), Answer(code, {}));
  }
}

TEST_F(Paths, InstallDirectory) {
  EXPECT_THAT(
      logged(QLOG_UTL, [&] { EXPECT_EQ(install_directory(), Answer(QERR_NOT_FOUND, {})) << "no such service"; }),
      StartsWith("Unable to get data size for registry value "
                 "HKLM\\SYSTEM\\CurrentControlSet\\Services\\kovane\\ImagePath: err 2 (0x2): No such"));
  fake_system system;
  system.value_code = QERR_NOT_FOUND;
  EXPECT_EQ(install_directory(), Answer(QERR_NOT_FOUND, {}));
  system.value_code = QERR_OK;
  const std::pair<const qchar*, Answer> cases[] = {
      {u"C:\\Program Files\\Kovane\\svc.exe", {QERR_OK, u"C:\\Program Files\\Kovane"}},
      {u"\"C:\\Program Files\\Kovane\\svc.exe\" -k", {QERR_OK, u"C:\\Program Files\\Kovane"}},
      {u"svc.exe", {QERR_ALL_BITS, {}}},
      {u"\\svc.exe", {QERR_OK, u""}}};
  for (const auto& [value, expected] : cases) {
    system.value = value;
    EXPECT_EQ(install_directory(), expected) << qstr_to_utf8(value);
  }
}

TEST_F(Paths, MissingArgumentIsReportedByPosition) {
  EXPECT_EQ(utl_get_volume_path_alloc(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(utl_get_volume_path_alloc(u"x", nullptr), QERR_ARG2);
  EXPECT_EQ(utl_get_full_long_name_alloc(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(utl_get_full_long_name_alloc(u"x", nullptr), QERR_ARG2);
  EXPECT_EQ(utl_get_long_name_alloc(nullptr, nullptr, 0), QERR_ARG1);
  EXPECT_EQ(utl_get_long_name_alloc(u"x", nullptr, 0), QERR_ARG2);
  EXPECT_EQ(utl_split_existing_path(nullptr, nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(utl_split_existing_path(u"x", nullptr, nullptr), QERR_ARG2);
}

}  // namespace
