// Separator and roots as Linux has them.
#include "common/qlib/qpath.h"

qchar qpath_native_separator() noexcept { return u'/'; }

// There are no drives: "a:" is a name. The root takes their place, since its contents are listed and not itself.
bool qpath_is_bare_drive(const qchar* path) noexcept { return path != nullptr && path[0] == u'/' && path[1] == 0; }

bool qpath_empty_is_root() noexcept { return false; }
