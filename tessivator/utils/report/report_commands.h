// The commands of the program. Each reads what scans wrote into the named folders, and throws ReportError when it
// cannot do its work. `output` is a path for ReportOutput; empty or "-" is standard output.
#pragma once

#include <string>
#include <vector>

#include "utils/report/report_certificate.h"

// A self-contained page. `now` decides verdicts and which certificates are past their end date.
void reportHtml(const std::u16string& folder, const std::u16string& output, Seconds now);
// One row a file, RFC 4180.
void reportCsv(const std::u16string& folder, const std::u16string& output, Seconds now);
// A CycloneDX 1.5 bill of materials, in XML.
void reportCycloneDx(const std::u16string& folder, const std::u16string& output, Seconds now);
// What differs, as text or as CSV. False when nothing does; standard output then stays empty.
[[nodiscard]] bool reportDiff(const std::u16string& older, const std::u16string& newer, const std::u16string& output,
                              bool csv, Seconds now);
// The reports and certificates of `folders` as those of one scan, in the folder `target`, which is made when missing.
// False when parts of one scan do not fit together; they are merged all the same.
[[nodiscard]] bool reportMerge(const std::u16string& target, const std::vector<std::u16string>& folders);
