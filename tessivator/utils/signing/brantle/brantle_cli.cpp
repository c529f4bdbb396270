#include "utils/signing/brantle/brantle_cli.h"

#include <memory>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "share/qshare.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_progress.h"
#include "utils/signing/brantle/brantle_signals.h"
#include "utils/signing/brantle/brantle_stderr.h"

static constexpr std::uint32_t module_id = QLOG_PROG;
#undef QLOG_SOURCE
#define QLOG_SOURCE "brantle.cpp"

namespace {

void logFailure(std::int32_t result) noexcept {
  QLOG_AS(QLOG_ERROR, "wmain", u"Final Error Code is unsuccessful: %d", result);
}

std::int32_t invokeVisibly(Brantle& request) {
  BrantleProgress progress;
  request.setObserver(&progress);
  const std::int32_t result = request.invoke();
  request.setObserver(nullptr);
  if (request.checkAccess == 0) progress.finish(request.totals());
  const std::string incomplete = request.incompleteText();
  if (!incomplete.empty()) {
    brantle_stderr_write(u"brantle: " + std::u16string(incomplete.begin(), incomplete.end()) + u"\n");
  }
  return result;
}

// Otherwise a share that needs the program looks like one that is not there.
void explainFailure(const qchar* path) {
  if (!qpath_is_unc(path) || qshare_has_program()) return;
  // The message before this one, on standard output, ends without a line feed.
  if (brantle_stderr_is_terminal()) brantle_stderr_write(u"\n");
  brantle_stderr_write(u"brantle: shares need the program brantle_smb (package brantle-smb)\n");
}

std::int32_t runRequest(const qchar* const* argv, int argc, std::unique_ptr<Brantle>& request) noexcept {
  std::int32_t result = BRANTLE_EXCEPTION;
  try {
    request = std::make_unique<Brantle>();
    result = request->parseArgs(argv, argc);
    if (result == BRANTLE_OK && !request->takeDetailsFromEnvironment()) {
      brantle_stderr_write(u"brantle: BRANTLE_DETAILS is neither 1 nor digests; no details are written\n");
    }
    if (result == BRANTLE_OK) {
      result = invokeVisibly(*request);
      if (result != BRANTLE_OK) explainFailure(argv[1]);
    }
  } catch (...) {
    (void)qstr_console_printf(u"Exception thrown!!!.");
    result = BRANTLE_EXCEPTION;
  }
  if (result != BRANTLE_OK) logFailure(result);
  return result;
}

}  // namespace

std::int32_t brantle_cli_run(const qchar* const* argv, int argc) noexcept {
  brantle_signals_begin();
  const qerr_t started = qlib_lib_init_basic();
  if (started != QERR_OK) return static_cast<std::int32_t>(started);
  qlib_set_standalone(true);
  (void)qlog_file_from_environment("BRANTLE_LOG");
  std::unique_ptr<Brantle> request;
  const std::int32_t result = runRequest(argv, argc, request);
  try {
    delete request.release();  // the owner's own deletion could not let an exception out
  } catch (...) {
    // Nothing that the destructor calls throws today; the text is what operators would look for.
    (void)qstr_console_printf(u"Failed to delete Brantle!!!.");
  }
  qlib_lib_fini_basic();
  return result == BRANTLE_INTERRUPTED ? brantle_signals_result(result) : result;
}
