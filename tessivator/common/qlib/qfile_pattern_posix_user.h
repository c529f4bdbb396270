// Names and search patterns as Windows compares them.
#pragma once

#include <string_view>

#include "common/qlib/qtypes.h"

// Whether `name` matches `pattern`, ignoring case, as the search functions of Windows decide ([MS-FSA] 2.1.4.4). *
// matches any units; directly before a period it does not pass the name's last period. ? matches one unit but no
// period, and nothing before a period or at the name's end. A period before a wildcard matches nothing at the name's
// end, so "*.*" is every name. Takes at most pattern x name steps. May throw std::bad_alloc.
[[nodiscard]] bool qfile_name_matches(std::u16string_view pattern, std::u16string_view name);
