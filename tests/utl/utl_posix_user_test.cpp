#include <unistd.h>

#include "common/qlib/qmem.h"
#include "common/qlib/qstr_name.h"
#include "support/scratch.h"
#include "utl/utl_mounts_posix_user.h"
#include "utl/utl_user.h"

namespace {

using Mounts = ScratchTest;

TEST_F(Mounts, TheDeepestExistingPartDecides) {
  std::string link;
  ASSERT_TRUE(qstr_name_to_bytes(at(u"to-proc"), link));
  ASSERT_EQ(::symlink("/proc", link.c_str()), 0);
  for (const std::u16string& path : {std::u16string(u"/proc"), std::u16string(u"/proc/self/status"),
                                     std::u16string(u"/proc/no/such/thing"), at(u"to-proc/self")}) {
    qchar* root = nullptr;
    ASSERT_EQ(utl_get_volume_path_alloc(path.c_str(), &root), QERR_OK);
    const QmemPtr<qchar> owner(root);
    EXPECT_EQ(std::u16string(root), u"/proc") << qstr_to_utf8(path);
  }
  utl_mount mount;
  ASSERT_EQ(utl_find_mount(u"/proc", mount), 0);
  EXPECT_EQ(mount.type, "proc");
}

}  // namespace
