#include <windows.h>

#include <algorithm>

#include "common/qlib/qfile.h"
#include "support/scratch.h"

namespace {

using WinFiles = ScratchTest;

const wchar_t* wide(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

// Names that only the prefixed form can reach; an archive made elsewhere can hold them.
TEST_F(WinFiles, NamesAreTakenAsTheyStand) {
  for (const char16_t* name : {u"t/nul", u"t/com1.exe", u"t/ends in a stop.", u"t/ends in a blank "}) {
    put(name, "bytes");
    EXPECT_EQ(get(at(name)), "bytes") << qstr_to_utf8(name);
  }
  QfileOwner file;
  EXPECT_NE(qfile_open(file.out(), u"nul", QFILE_READ), QERR_OK) << "a device is no file";
}

TEST_F(WinFiles, RelativeAndSlashedPathsWork) {
  std::u16string slashed = put(u"a/f", "bytes");
  std::replace(slashed.begin(), slashed.end(), u'\\', u'/');
  EXPECT_EQ(get(slashed), "bytes");
  EXPECT_EQ(get(at(u"a") + u"\\.\\..\\a\\f"), "bytes");
}

TEST_F(WinFiles, OpenFilesCanBeDeletedByOthers) {
  const std::u16string path = put(u"f");
  ASSERT_NE(SetFileAttributesW(wide(path), FILE_ATTRIBUTE_READONLY), FALSE);
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), path.c_str(), QFILE_READ), QERR_OK);
  EXPECT_EQ(qfile_delete(path.c_str()), QERR_OK) << "though it is read-only";
  file.reset();
  const std::u16string locked = put(u"g");
  HANDLE const alone = CreateFileW(wide(locked), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(alone, INVALID_HANDLE_VALUE);
  EXPECT_EQ(qfile_open(file.out(), locked.c_str(), QFILE_READ), QERR_SHARING);
  CloseHandle(alone);
}

}  // namespace
