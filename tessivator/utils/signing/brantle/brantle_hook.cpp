#include "utils/signing/brantle/brantle_hook.h"

#include "common/qlib/qerr.h"

namespace {
bool attempted = false;  // attach and detach are serialised by the system's loader
}

bool brantle_hook_attach() noexcept {
  const qerr_t code = qlib_lib_init_basic();
  attempted = true;
  if (code == QERR_OK) return true;
  (void)qstr_console_printf(u"qlib_lib_init_basic failed err: %d", code);
  return false;
}

void brantle_hook_detach() noexcept {
  if (!attempted) return;
  qlib_lib_fini_basic();
  attempted = false;
}
