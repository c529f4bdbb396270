#include "common/qlib/qstr.h"

qchar qpath_native_separator() noexcept { return u'\\'; }

bool qpath_is_bare_drive(const qchar* path) noexcept {
  return path != nullptr && path[0] != 0 && path[1] == u':' && path[2] == 0;
}
