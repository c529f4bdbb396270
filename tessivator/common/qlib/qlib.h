// Start-up and shut-down of the runtime, and process-wide flags.
#pragma once

#include "common/qlib/qtypes.h"

// Starts the runtime: error tables, logging, the library-wide lock. Returns QERR_OK or the code of the first failure.
// Calls are counted, so users may nest (a host that loads the library and also starts the runtime itself).
[[nodiscard]] qerr_t qlib_lib_init_basic() noexcept;

// Undoes one qlib_lib_init_basic; the last call releases the runtime in reverse order.
void qlib_lib_fini_basic() noexcept;

// True between a successful start-up and its shut-down.
[[nodiscard]] bool qlib_lib_is_initialised() noexcept;

// Standalone mode, process-wide and atomic: while on, file information is gathered without checking the feature masks
// of the configuration. Every front end switches it on before it scans.
void qlib_set_standalone(bool on) noexcept;
[[nodiscard]] bool qlib_get_standalone() noexcept;

// Asks every scan of this process to stop: from now on file reads return QERR_CANCELLED. Safe in a signal handler and
// cannot be undone: for a program that was told to end, not for the host of a library.
void qlib_cancel() noexcept;
[[nodiscard]] bool qlib_is_cancelled() noexcept;
