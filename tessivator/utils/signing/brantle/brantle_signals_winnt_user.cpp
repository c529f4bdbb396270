// Control events of a Windows console.
#include <windows.h>

#include <atomic>

#include "common/qlib/qlib.h"
#include "utils/signing/brantle/brantle_signals.h"

namespace {

// STATUS_CONTROL_C_EXIT: the exit status of a process that Ctrl-C ended.
constexpr DWORD control_result = 0xC000013A;

std::atomic<bool> received{false};

// Called on its own thread.
BOOL WINAPI onControl(DWORD event) {
  if (received.exchange(true)) ExitProcess(control_result);
  qlib_cancel();
  // When a window or session closes, the system ends the process once this returns: give the scan the time there is.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
  return TRUE;
}

}  // namespace

void brantle_signals_begin() noexcept { (void)SetConsoleCtrlHandler(onControl, TRUE); }

std::int32_t brantle_signals_result(std::int32_t result) noexcept {
  return received.load() ? static_cast<std::int32_t>(control_result) : result;
}
