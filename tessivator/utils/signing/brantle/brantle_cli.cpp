#include "utils/signing/brantle/brantle_cli.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "common/qlib/qconsole.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qprintable.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"
#include "share/qshare.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_complaints.h"
#include "utils/signing/brantle/brantle_password.h"
#include "utils/signing/brantle/brantle_progress.h"
#include "utils/signing/brantle/brantle_signals.h"

static constexpr std::uint32_t module_id = QLOG_PROG;
#undef QLOG_SOURCE
#define QLOG_SOURCE "brantle.cpp"

namespace {

void logFailure(std::int32_t result) noexcept {
  QLOG_AS(QLOG_ERROR, "wmain", u"Final Error Code is unsuccessful: %d", result);
}

std::int32_t refuse(const qchar* why) noexcept {
  qconsole_put_error(std::u16string(u"brantle: ") + why + u'\n');
  return BRANTLE_USAGE;
}

// What the environment asks for beyond the arguments.
std::int32_t readEnvironment(Brantle& request) {
  if (const char* const asked = std::getenv("BRANTLE_PART"); asked != nullptr) {  // NOLINT(concurrency-mt-unsafe)
    BrantlePart part;
    if (!part.read(asked)) return refuse(u"BRANTLE_PART is not I/N with 1 <= I <= N <= 65536");
    if (request.certsOnly != 0 || request.checkAccess != 0) return refuse(u"BRANTLE_PART does not go with -O or -c");
    request.setPart(part);
  }
  if (request.nwMode == 0 || !request.hasPassword(u"-")) return BRANTLE_OK;
  const std::u16string file = qsys_environment("BRANTLE_PASSWORD_FILE");
  std::u16string password;
  if (file.empty()) return BRANTLE_OK;
  if (!brantle_password_read(file, password)) return refuse(u"BRANTLE_PASSWORD_FILE cannot be read");
  request.setPassword(std::move(password));
  return BRANTLE_OK;
}

void startLogFile() noexcept try {
  const qlog_named_file log = qlog_file_from_environment("BRANTLE_LOG");
  if (log.code == QERR_OK) return;
  qconsole_put_error(u"brantle: " + qprintable(log.path) + u": not opened: " + qerr_get_string(log.code) + u"\n");
} catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

std::int32_t invokeVisibly(Brantle& request) {
  BrantleProgress progress(request.certsOnly != 0);
  request.setObserver(&progress);
  const std::int32_t result = request.invoke();
  request.setObserver(nullptr);
  if (request.checkAccess == 0) {
    progress.finish(request.totals(), brantleRemarks(request, result == BRANTLE_INTERRUPTED));
  }
  qconsole_put_error(brantleComplaints(request));
  return result;
}

// Otherwise a share that needs the program looks like one that is not there.
void explainFailure(const qchar* path) {
  if (!qpath_is_unc(path) || qshare_has_program()) return;
  // The message before this one, on standard output, ends without a line feed.
  if (qconsole_error_is_terminal()) qconsole_put_error(u"\n");
  qconsole_put_error(u"brantle: shares need the program brantle_smb (package brantle-smb)\n");
}

std::int32_t runRequest(const qchar* const* argv, int argc, std::unique_ptr<Brantle>& request) noexcept {
  std::int32_t result = BRANTLE_EXCEPTION;
  try {
    request = std::make_unique<Brantle>();
    result = request->parseArgs(argv, argc);
    if (result == BRANTLE_OK && !request->takeDetailsFromEnvironment()) {
      qconsole_put_error(u"brantle: BRANTLE_DETAILS is neither 1 nor digests; no details are written\n");
    }
    if (result == BRANTLE_OK) result = readEnvironment(*request);
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
  startLogFile();
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
