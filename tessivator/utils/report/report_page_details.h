// What the page's dialog shows of one file, from its line in the details.
#pragma once

#include <string>

#include "utils/report/report_certificate_book.h"

// A JSON object on one line that may stand inside an HTML script element; empty when there is nothing to tell.
// Certificates go by the book's numbers. Of more than 64 KiB it says only that it would be too long: {"isCut":true}.
[[nodiscard]] std::string pageDetailsOf(const details_file& file, const CertificateBook& book);
