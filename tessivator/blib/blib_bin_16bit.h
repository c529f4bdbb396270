// The coarse test for any kind of executable.
#pragma once

#include "common/qlib/qfile.h"

// 1 when the file begins with "MZ", as all DOS, 16-bit, 32-bit and 64-bit executables do; else 0.
[[nodiscard]] std::uint32_t blib_bin_is_16bit_by_handle(qfile_t file) noexcept;
