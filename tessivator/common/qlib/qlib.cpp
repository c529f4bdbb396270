#include "common/qlib/qlib.h"

#include <atomic>
#include <mutex>

#include "common/qlib/qcksum_digest.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"

namespace {

// The library-wide lock: serialises start-up and shut-down.
std::mutex library_lock;
std::uint32_t users = 0;
std::atomic<bool> initialised{false};
std::atomic<bool> standalone{false};
std::atomic<bool> cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free);  // a signal handler sets it

}  // namespace

qerr_t qlib_lib_init_basic() noexcept {
  const std::lock_guard lock(library_lock);
  if (users == 0) {
    qerr_t code = qerr_lib_init();
    if (code != QERR_OK) return code;
    code = qlog_init();
    if (code != QERR_OK) {
      qerr_lib_fini();
      return code;
    }
    initialised.store(true, std::memory_order_release);
  }
  ++users;
  return QERR_OK;
}

void qlib_lib_fini_basic() noexcept {
  const std::lock_guard lock(library_lock);
  if (users == 0 || --users != 0) return;
  initialised.store(false, std::memory_order_release);
  qcksum_lib_fini();
  qlog_fini();
  qerr_lib_fini();
}

bool qlib_lib_is_initialised() noexcept { return initialised.load(std::memory_order_acquire); }

void qlib_set_standalone(bool on) noexcept { standalone.store(on, std::memory_order_relaxed); }

bool qlib_get_standalone() noexcept { return standalone.load(std::memory_order_relaxed); }

void qlib_cancel() noexcept { cancelled.store(true, std::memory_order_relaxed); }

bool qlib_is_cancelled() noexcept { return cancelled.load(std::memory_order_relaxed); }
