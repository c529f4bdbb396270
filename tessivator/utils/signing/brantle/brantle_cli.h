// The console front end, called by the entry point of each platform.
#pragma once

#include <cstdint>

#include "common/qlib/qtypes.h"

// Runs one request from the command line: starts the runtime, parses, scans, releases the runtime. Returns the exit
// code: the result of the request (brantle.h), or the code of a failed start of the runtime.
[[nodiscard]] std::int32_t brantle_cli_run(const qchar* const* argv, int argc) noexcept;
