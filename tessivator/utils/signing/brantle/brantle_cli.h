// The console front end, common to both platforms' process entry points.
#pragma once

#include <cstdint>

#include "common/qlib/qtypes.h"

// Runs one request from the command line: starts the runtime, parses, scans, releases the runtime. Returns
// the process's exit code: 22 for a usage error, otherwise the request's result code, or the runtime's own
// start-up code.
[[nodiscard]] std::int32_t brantle_cli_run(const qchar* const* argv, int argc) noexcept;
