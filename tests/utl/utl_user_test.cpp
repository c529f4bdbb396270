#include "utl/utl_user.h"

#include <optional>

#include "common/qlib/qmem.h"
#include "support/faulty_provider.h"
#include "support/replaced.h"
#include "support/scratch.h"
#include "utl/utl_system.h"

namespace {

using Result = std::optional<std::u16string>;

Result taken(qchar* text) {
  const QmemPtr<qchar> owner(text);
  return text == nullptr ? Result() : Result(text);
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
    asked = path;
    out = u"root";
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
  std::u16string value, asked;
};

class Paths : public ScratchTest {
 protected:
  static Result long_name(const std::u16string& path) {
    qchar* result = nullptr;
    EXPECT_EQ(utl_get_long_name_alloc(path.c_str(), &result, 0), QERR_OK);
    return taken(result);
  }
  static Result volume(const std::u16string& path) {
    qchar* result = nullptr;
    EXPECT_EQ(utl_get_volume_path_alloc(path.c_str(), &result), QERR_OK);
    return taken(result);
  }
};

TEST_F(Paths, SplitBeforeWhatDoesNotExist) {
  put(u"there/file");
  const struct {
    std::u16string path;
    Result existing, remainder;
  } cases[] = {
      {at(u"there/file"), at(u"there/file"), {}},
      {at(u"there/New"), at(u"there"), u"New"},
      {at(u"there/New/file.txt"), at(u"there"), at(u"New/file.txt").substr(root().size() + 1)},
      {at(u"there/New/"), at(u"there"), u"New" + std::u16string(1, sep())},
      {std::u16string(1, sep()) + u"no-such-name-here", {}, {}},
      {u"\\\\no-such-server-here", {}, {}},
      {u"", {}, {}},
  };
  for (const auto& one : cases) {
    qchar* existing = nullptr;
    qchar* remainder = nullptr;
    EXPECT_EQ(utl_split_existing_path(one.path.c_str(), &existing, &remainder), QERR_OK);
    EXPECT_EQ(taken(existing), one.existing) << qstr_to_utf8(one.path);
    EXPECT_EQ(taken(remainder), one.remainder) << qstr_to_utf8(one.path);
  }
}

TEST_F(Paths, LongNames) {
  const std::u16string path = put(u"there/file");
  std::vector<std::u16string> same = {path, at(u"there/New/file.txt"), u"no-such-name-here"};
  same.emplace_back(sep() == u'\\' ? u"C:\\no-such-name-here" : u"/");  // no separator is doubled
  for (const std::u16string& name : same) EXPECT_EQ(long_name(name), name) << qstr_to_utf8(name);
  if (sep() == u'\\') {
    EXPECT_EQ(long_name(u"C:"), u"C:\\");
  }
  fake_system system;
  system.size_error = 7;
  EXPECT_NE(logged(QLOG_UTL, [&] { EXPECT_EQ(long_name(path), path); })
                .find("GetLongPathName() failed for: file " + qstr_to_utf8(path) + ": err 100007 (0x186a7): "),
            std::string::npos);
  system.size_error = 0;
  system.form_error = 1450;
  qchar* text = nullptr;
  EXPECT_EQ(utl_get_long_name_alloc(path.c_str(), &text, 0), 1450U) << "untranslated";
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(utl_get_full_long_name_alloc(path.c_str(), &text), QERR_OK) << "the full path stands in";
  EXPECT_EQ(taken(text), path);
}

TEST_F(Paths, FullLongNames) {
  put(u"there/file");
  qchar* text = nullptr;
  ASSERT_EQ(utl_get_full_long_name_alloc(at(u"there/../there/./file").c_str(), &text), QERR_OK);
  EXPECT_EQ(taken(text), at(u"there/file"));
  faulty_provider disk;
  for (const std::uint32_t call : {1U, 2U}) {
    disk.fail(file_op::full_path, call, QERR_PERMISSION);
    EXPECT_EQ(utl_get_full_long_name_alloc(u"x", &text), QERR_PERMISSION);
    EXPECT_EQ(text, nullptr);
  }
  const std::u16string longer = u"a-name-longer-than-what-is-left/" + std::u16string(4000, u'/') + u"../x";
  disk.fail(file_op::full_path, 2, QERR_NOT_FOUND);
  EXPECT_EQ(utl_get_full_long_name_alloc(longer.c_str(), &text), QERR_OK);
  EXPECT_EQ(taken(text), longer) << "not found: the path as it was given";
}

TEST_F(Paths, VolumeOfAPath) {
  const Result here = volume(at(u"New/file"));
  ASSERT_TRUE(here.has_value());
  EXPECT_TRUE(root().starts_with(*here));
  EXPECT_EQ(volume(sep() == u'\\' ? u"C:" : u"/"), sep() == u'\\' ? u"C:\\" : u"/");
  if (sep() == u'/') {  // the deepest part that exists decides
    std::filesystem::create_directory_symlink("/proc", at(u"to-proc"));
    for (const std::u16string& path :
         {std::u16string(u"/proc"), std::u16string(u"/proc/no/thing"), at(u"to-proc/self")})
      EXPECT_EQ(volume(path), u"/proc") << qstr_to_utf8(path);
  }
  EXPECT_EQ(volume(u"\\\\server\\share\\dir\\file"), u"\\\\server\\share\\");
  EXPECT_EQ(volume(u"\\\\?\\UNC\\server\\share\\dir"), u"\\\\?\\UNC\\server\\share\\");
  qchar* text = nullptr;
  EXPECT_EQ(utl_get_volume_path_alloc(u"\\\\server", &text), QERR_INVALID);
  fake_system system;
  system.volume_code = QERR_PERMISSION;
  EXPECT_EQ(utl_get_volume_path_alloc(at(u"New").c_str(), &text), QERR_PERMISSION);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(system.asked, at(u"New"));
}

TEST_F(Paths, InstallDirectory) {
  qchar* text = nullptr;
  const std::string log = logged(QLOG_UTL, [&] { EXPECT_EQ(utl_get_install_dir_alloc(&text), QERR_NOT_FOUND); });
  EXPECT_NE(log.find("Unable to get data size for registry value "
                     "HKLM\\SYSTEM\\CurrentControlSet\\Services\\kovane\\ImagePath: err 2 (0x2): No such"),
            std::string::npos)
      << "there is no such service";
  fake_system system;
  system.value_code = QERR_NOT_FOUND;
  EXPECT_EQ(utl_get_install_dir_alloc(&text), QERR_NOT_FOUND);
  EXPECT_EQ(text, nullptr);
  system.value_code = QERR_OK;
  const struct {
    const qchar* value;
    Result directory;
  } cases[] = {{u"C:\\Program Files\\Kovane\\svc.exe", u"C:\\Program Files\\Kovane"},
               {u"\"C:\\Program Files\\Kovane\\svc.exe\" -k", u"C:\\Program Files\\Kovane"},
               {u"svc.exe", {}},
               {u"\\svc.exe", u""}};
  for (const auto& one : cases) {
    system.value = one.value;
    EXPECT_EQ(utl_get_install_dir_alloc(&text), one.directory ? QERR_OK : QERR_ALL_BITS) << qstr_to_utf8(one.value);
    EXPECT_EQ(taken(std::exchange(text, nullptr)), one.directory);
  }
}

}  // namespace
