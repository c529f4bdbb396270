#include "utils/signing/brantle/brantle_cli.h"

#include <memory>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "utils/signing/brantle/brantle.h"

static constexpr std::uint32_t module_id = QLOG_PROG;

namespace {

void logFailure(std::int32_t result) noexcept {
  QLOG_AS(QLOG_ERROR, "wmain", u"Final Error Code is unsuccessful: %d", result);
}

std::int32_t runRequest(const qchar* const* argv, int argc, std::unique_ptr<Brantle>& request) noexcept {
  std::int32_t result = BRANTLE_EXCEPTION;
  try {
    request = std::make_unique<Brantle>();
    result = request->parseArgs(argv, argc);
    if (result == BRANTLE_OK) result = request->invoke();
  } catch (...) {
    (void)qstr_console_printf(u"Exception thrown!!!.");
    result = BRANTLE_EXCEPTION;
  }
  if (result != BRANTLE_OK) logFailure(result);
  return result;
}

}  // namespace

std::int32_t brantle_cli_run(const qchar* const* argv, int argc) noexcept {
  const qerr_t started = qlib_lib_init_basic();
  if (started != QERR_OK) return static_cast<std::int32_t>(started);
  qlib_set_standalone(true);
  std::unique_ptr<Brantle> request;
  const std::int32_t result = runRequest(argv, argc, request);
  try {
    delete request.release();  // the owner's own deletion could not let an exception out
  } catch (...) {
    // Nothing that the destructor calls throws today; the text is what operators would look for.
    (void)qstr_console_printf(u"Failed to delete Brantle!!!.");
  }
  qlib_lib_fini_basic();
  return result;
}
