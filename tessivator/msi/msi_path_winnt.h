// Windows only: the form of a path in which the system's package readers open it.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

// `path` as it is; where it is too long for the system's plain form, absolute and behind "\\?\". May throw
// std::bad_alloc.
[[nodiscard]] std::u16string msi_system_path(const qchar* path);
