// Names and search patterns as Windows compares them.
#pragma once

#include <string_view>

#include "common/qlib/qtypes.h"

// Whether `name` fits `pattern`, in either case of its letters. * stands for any units. ? stands for one, but for no
// period, and for none before a period or at the end. A period before a wildcard may stand at the end for nothing, so
// that "*.*" is every name. Takes at most pattern x name steps. May throw std::bad_alloc.
[[nodiscard]] bool qfile_name_matches(std::u16string_view pattern, std::u16string_view name);
