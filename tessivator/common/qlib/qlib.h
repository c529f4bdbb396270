// Start-up and shut-down of the common runtime, and the process-wide flags.
#pragma once

#include "common/qlib/qtypes.h"

// Starts the runtime: error tables, logging, the library-wide lock. Returns the first failure's code, or QERR_OK. May
// be called again after qlib_lib_fini_basic; calls are counted, so that nested users (a host that loads the library and
// also runs its own start-up) do not take the runtime from each other.
[[nodiscard]] qerr_t qlib_lib_init_basic() noexcept;

// Undoes one qlib_lib_init_basic; the last one releases the runtime in reverse order.
void qlib_lib_fini_basic() noexcept;

// True between a successful start-up and its counterpart.
[[nodiscard]] bool qlib_lib_is_initialised() noexcept;

// Standalone mode, process-wide and atomic: while on, file information is gathered without consulting the
// configuration's feature masks. Every front end switches it on before it scans.
void qlib_set_standalone(bool on) noexcept;
[[nodiscard]] bool qlib_get_standalone() noexcept;

// Asks every scan of this process to stop: from now on reads of files answer QERR_CANCELLED. Safe in a signal handler
// and never taken back: it is for a program that was told to end, not for the host of a library.
void qlib_cancel() noexcept;
[[nodiscard]] bool qlib_is_cancelled() noexcept;
