// What the program says on standard error about what a scan left out and what it could not write.
#pragma once

#include <string>

#include "utils/signing/brantle/brantle.h"

// Lines with the program's name in front, one for each report that is not in its place, one for all certificates that
// were not written, one for each of the first paths that were left out, and the counts. Empty when all went well.
[[nodiscard]] std::u16string brantleComplaints(const Brantle& request);

// The same in short, behind the totals: ", interrupted, report not written". Empty when all went well.
[[nodiscard]] std::string brantleRemarks(const Brantle& request, bool interrupted);
