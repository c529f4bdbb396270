// Bounds that a scan and the readers of its report share.
#pragma once

#include <cstddef>

// Certificate names in one entry of a report. A scan names the first ones in the file's order, and the file's list
// costs it about 14 MB.
inline constexpr std::size_t QLIMIT_NAMES_OF_A_FILE = 65536;
