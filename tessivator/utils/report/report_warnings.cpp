#include "utils/report/report_warnings.h"

#include <string>

#include "common/qlib/qconsole.h"
#include "common/qlib/qprintable.h"
#include "common/qlib/qstr.h"

namespace {

constexpr std::size_t max_told = 20;

}  // namespace

ReportWarnings::~ReportWarnings() {
  if (count_ <= max_told) return;
  try {
    qconsole_put_error(u"brantle-report: and " + qstr_to_wide(std::to_string(count_ - max_told)) + u" more of these\n");
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory even for saying so
  }
}

void ReportWarnings::tell(std::u16string_view text) {
  if (++count_ <= max_told) qconsole_put_error(u"brantle-report: " + qprintable(text) + u'\n');
}
