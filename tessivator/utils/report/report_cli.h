// The command line of brantle-report, common to both systems' process entry points.
#pragma once

#include "common/qlib/qtypes.h"

// Runs one command. Returns the process's exit code: 0, 1 (only of diff: something differs), or 2 after a line on
// standard error.
[[nodiscard]] int reportMain(const qchar* const* argv, int argc) noexcept;
