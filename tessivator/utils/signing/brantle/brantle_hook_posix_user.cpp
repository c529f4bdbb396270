// The process hook on Linux. A constructor cannot refuse the load, so the entry points check whether the runtime
// started.
#include "utils/signing/brantle/brantle_hook.h"

namespace {
[[gnu::constructor]] void attach() { (void)brantle_hook_attach(); }
[[gnu::destructor]] void detach() { brantle_hook_detach(); }
}  // namespace
