// The one error space of all components, its texts, and the translation of system errors into it.
//
//   0-124      portable system errors in Linux's errno numbering
//   1001-1109  extended codes of this library's family
//   100000-    a system error that no table translates: 100000 + the system's value
//
// Every routine of the component libraries returns such a code. A missing argument gives QERR_ARG1, QERR_ARG2,
// QERR_ARG3 ... by its position.
#pragma once

#include "common/qlib/qtypes.h"

inline constexpr qerr_t QERR_OK = 0;
inline constexpr qerr_t QERR_NOT_PERMITTED = 1;
inline constexpr qerr_t QERR_NOT_FOUND = 2;
inline constexpr qerr_t QERR_IO = 5;
inline constexpr qerr_t QERR_LOW_MEMORY = 12;
inline constexpr qerr_t QERR_PERMISSION = 13;
inline constexpr qerr_t QERR_BAD_ADDRESS = 14;
inline constexpr qerr_t QERR_EXISTS = 17;
inline constexpr qerr_t QERR_INVALID = 22;
inline constexpr qerr_t QERR_NO_SPACE = 28;
inline constexpr qerr_t QERR_NAME_LONG = 36;
inline constexpr qerr_t QERR_LINKS = 40;
inline constexpr qerr_t QERR_NOT_IMPLEMENTED = 38;
inline constexpr qerr_t QERR_TIMER_EXPIRED = 62;
inline constexpr qerr_t QERR_OVERFLOW = 75;   // "Value too large for defined data"
inline constexpr qerr_t QERR_CORRUPTED = 80;  // also: logging is not initialised
inline constexpr qerr_t QERR_NOT_INITIALIZED = 1001;
inline constexpr qerr_t QERR_ARG1 = 1002;
inline constexpr qerr_t QERR_ARG2 = 1003;
inline constexpr qerr_t QERR_ARG3 = 1004;
inline constexpr qerr_t QERR_ARG4 = 1005;
inline constexpr qerr_t QERR_ARG5 = 1006;
inline constexpr qerr_t QERR_END = 1008;  // "No more values/keys left to iterate"
inline constexpr qerr_t QERR_BUFFER_SMALL = 1009;
inline constexpr qerr_t QERR_SHARING = 1020;
inline constexpr qerr_t QERR_BAD_IMAGE = 1062;  // not a valid image, or a file of no interest
inline constexpr qerr_t QERR_EMPTY_FILE = 1064;
inline constexpr qerr_t QERR_CANCELLED = 1088;
inline constexpr qerr_t QERR_DRIVE_TYPE = 1090;  // a volume of a kind that is not supported
inline constexpr qerr_t QERR_CKSUM_BYPASSED = 1099;
inline constexpr qerr_t QERR_ALL_BITS = 0xFFFFFFFFU;  // -1
inline constexpr qerr_t QERR_SYSTEM_BASE = 100000;

// Builds the lookup tables. Called once by qlib_lib_init_basic. Returns QERR_OK, or QERR_ALL_BITS on failure.
[[nodiscard]] qerr_t qerr_lib_init() noexcept;

// Releases the tables with every text that qerr_get_string cached.
void qerr_lib_fini() noexcept;

// Translates a Windows error value; an unknown value gives value + QERR_SYSTEM_BASE. QERR_ALL_BITS while the tables are
// not loaded. The table exists on every platform.
[[nodiscard]] qerr_t qerr_from_win32(std::uint32_t value) noexcept;

// Translates a C runtime errno value: 0 to 14 do not change, others give value + QERR_SYSTEM_BASE. QERR_ALL_BITS while
// the tables are not loaded.
[[nodiscard]] qerr_t qerr_from_crt(std::uint32_t value) noexcept;

// The text of a code: never null, never freed by the caller, valid until qerr_lib_fini. Safe from any thread.
[[nodiscard]] const qchar* qerr_get_string(qerr_t code) noexcept;
