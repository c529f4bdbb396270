#include <windows.h>

#include <algorithm>

#include "common/qlib/qfile.h"
#include "common/qlib/qfile_replacement.h"
#include "support/faulty_provider.h"
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

// Others have the target open, and share it so far.
TEST_F(WinFiles, CommitOverHeldFindsAWayForEachShareMode) {
  const struct {
    DWORD share, attributes;
    bool lets_go;
    qfile_committed how;
  } cases[] = {{0, 0, false, qfile_committed::beside},
               {FILE_SHARE_READ, 0, false, qfile_committed::beside},
               {FILE_SHARE_READ | FILE_SHARE_WRITE, 0, false, qfile_committed::copied},
               {FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0, false, qfile_committed::renamed},
               {FILE_SHARE_READ | FILE_SHARE_DELETE, 0, false, qfile_committed::renamed},
               {0, 0, true, qfile_committed::renamed},
               {0, FILE_ATTRIBUTE_READONLY, true, qfile_committed::renamed}};
  for (const auto& c : cases) {
    const std::u16string path = put(u"f", "older and longer");
    if (c.attributes != 0) SetFileAttributesW(wide(path), c.attributes);
    HANDLE holder = CreateFileW(wide(path), GENERIC_READ, c.share, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    faulty_provider disk;  // faults none, and takes no time to wait
    disk.before(file_op::pause, [&] {
      if (c.lets_go && disk.calls(file_op::pause) == 3) CloseHandle(holder);
    });
    qfile_replacement file;
    auto how = qfile_committed::beside;
    ASSERT_EQ(file.begin(path.c_str()), QERR_OK);
    ASSERT_EQ(file.write("new", 3), QERR_OK);
    EXPECT_EQ(file.commit_over_held(u"other", &how), QERR_OK) << c.share;
    EXPECT_EQ(how, c.how) << c.share;
    if (!c.lets_go) CloseHandle(holder);
    EXPECT_EQ(get(at(how == qfile_committed::beside ? u"other" : u"f")), "new") << c.share;
    EXPECT_EQ(get(at(u"f")) == "new", how != qfile_committed::beside) << c.share;
    (void)qfile_delete(at(u"other").c_str());
  }
}

}  // namespace
