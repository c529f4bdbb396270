// Separator and drives as Windows has them.
#include "common/qlib/qpath.h"

qchar qpath_native_separator() noexcept { return u'\\'; }

bool qpath_is_bare_drive(const qchar* path) noexcept {
  return path != nullptr && path[0] != 0 && path[1] == u':' && path[2] == 0;
}

bool qpath_empty_is_root() noexcept { return true; }
