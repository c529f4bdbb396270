// The console front end, common to both platforms' process entry points.
#pragma once

#include <cstdint>

#include "common/qlib/qtypes.h"

// Runs one request from the command line: starts the runtime, parses, scans, releases the runtime. Returns
// the process's exit code: the request's result code (brantle.h), or the runtime's own
// start-up code.
[[nodiscard]] std::int32_t brantle_cli_run(const qchar* const* argv, int argc) noexcept;
