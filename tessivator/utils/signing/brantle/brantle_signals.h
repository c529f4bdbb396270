// Signals that end the program: the scan stops at its next block, keeps certificates and the old report whole and
// leaves no temporary file. Only the program handles them; in a host they belong to the host.
#pragma once

#include <cstdint>

// From now on INT, TERM and HUP (on Windows Ctrl-C, Ctrl-Break and the window's closing) call qlib_cancel; a second one
// ends the process at once. A signal that the process was started to ignore stays ignored. XFSZ is ignored, so that a
// file that grows too large is a failed write.
void brantle_signals_begin() noexcept;

// The exit code of a program that one of them ended: 130, 143 or 129, on Windows 0xC000013A; `result` when none came.
[[nodiscard]] std::int32_t brantle_signals_result(std::int32_t result) noexcept;
