#include "utils/report/report_cli.h"

#include <charconv>
#include <cstdlib>
#include <optional>

#include "common/qlib/qconsole.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qprintable.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"
#include "share/qshare.h"
#include "utils/report/report_commands.h"

namespace {

constexpr int equal = 0;
constexpr int different = 1;
constexpr int failed = 2;
constexpr int uneven = 3;

constexpr const qchar* usage =
    u"usage: brantle-report COMMAND ...\n"
    u"\n"
    u"  html DIR [-o FILE]       one page with everything, to be opened in a browser\n"
    u"  csv DIR [-o FILE]        a table, one row a file\n"
    u"  cyclonedx DIR [-o FILE]  a bill of materials (CycloneDX 1.5, XML)\n"
    u"  diff OLD NEW [--csv] [-o FILE]\n"
    u"                           what was added, removed, changed and moved; which signers came and went\n"
    u"  merge OUT DIR...         the outputs of several scans as one\n"
    u"\n"
    u"DIR, OLD and NEW are folders that a scan wrote info.xml and certificates into. Without -o, or with -o -,\n"
    u"the result goes to standard output. Exit status: 0; of diff 1 when something differs; 2 when the command "
    u"failed;\nof merge 3 when parts of one scan do not fit together, and are merged all the same.\n"
    u"\n"
    u"  -h, --help     this text\n"
    u"  --version      the version\n";

using Arguments = std::vector<std::u16string>;

// The time of the run, or the one that a reproducible build asks for.
Seconds timeOfRun() {
  const char* const asked = std::getenv("SOURCE_DATE_EPOCH");
  if (asked == nullptr || *asked == '\0') return static_cast<Seconds>(qsys_time_ms() / 1000);
  const std::string_view text(asked);
  Seconds seconds = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (failure != std::errc() || end != text.data() + text.size()) throw ReportError(u"SOURCE_DATE_EPOCH is no number");
  return seconds;
}

[[noreturn]] void badUsage() { throw ReportError(u"wrong arguments; brantle-report -h shows the right ones"); }

// Takes "-o FILE" out of the arguments; empty when it is not there.
std::u16string takeOutput(Arguments& arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] != u"-o") continue;
    if (i + 1 == arguments.size() || arguments[i + 1].empty()) badUsage();
    std::u16string path = arguments[i + 1];
    const auto at = arguments.begin() + static_cast<std::ptrdiff_t>(i);
    arguments.erase(at, at + 2);
    return path;
  }
  return {};
}

int runDiff(Arguments arguments) {
  const bool csv = std::erase(arguments, u"--csv") != 0;
  const std::u16string output = takeOutput(arguments);
  if (arguments.size() != 2) badUsage();
  return reportDiff(arguments[0], arguments[1], output, csv, timeOfRun()) ? different : equal;
}

int runCommand(const std::u16string& command, Arguments arguments) {
  if (command == u"diff") return runDiff(std::move(arguments));
  if (command == u"merge") {
    if (arguments.size() < 2) badUsage();
    return reportMerge(arguments[0], {arguments.begin() + 1, arguments.end()}) ? equal : uneven;
  }
  const std::u16string output = takeOutput(arguments);
  if (arguments.size() != 1) badUsage();
  if (command == u"html") {
    reportHtml(arguments[0], output, timeOfRun());
  } else if (command == u"csv") {
    reportCsv(arguments[0], output, timeOfRun());
  } else if (command == u"cyclonedx") {
    reportCycloneDx(arguments[0], output, timeOfRun());
  } else {
    badUsage();
  }
  return equal;
}

int run(const qchar* const* argv, int argc) {
  if (argc < 2) badUsage();
  const std::u16string command = argv[1];
  if (command == u"-h" || command == u"--help") {
    (void)qstr_console_printf(usage);
    return equal;
  }
  if (command == u"--version") {
    (void)qstr_console_printf(u"brantle-report %hs\n", BRANTLE_VERSION);
    return equal;
  }
  return runCommand(command, Arguments(argv + 2, argv + argc));
}

}  // namespace

int reportMain(const qchar* const* argv, int argc) noexcept {
  if (qlib_lib_init_basic() != QERR_OK) return failed;
  qshare_enable();
  int result = failed;
  try {
    result = run(argv, argc);
  } catch (const ReportError& error) {
    qconsole_put_error(u"brantle-report: " + qprintable(error.text()) + u'\n');
  } catch (...) {
    qconsole_put_error(u"brantle-report: out of memory\n");
  }
  qlib_lib_fini_basic();
  return result;
}
