// The process hook, called by the hook of each platform.
#pragma once

#include "common/qlib/qlib.h"
#include "common/qlib/qstr.h"

// Starts the runtime when the process attaches. False, after a line on standard output, when it did not start.
[[nodiscard]] bool brantle_hook_attach() noexcept;

// Releases the runtime at detach if a start was attempted.
void brantle_hook_detach() noexcept;
