// What a survey says of a file's signature. One place decides it, for the page, the tables and the comparison.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "details/details_records.h"
#include "utils/report/report_certificate_book.h"
#include "utils/report/report_record.h"

#define REPORT_VERDICT(name, words) name,
enum class ReportVerdict : std::uint8_t {
#include "utils/report/report_names.def"
};

#define REPORT_VERDICT(name, words) std::string_view(words),
inline constexpr std::array REPORT_VERDICT_WORDS{
#include "utils/report/report_names.def"
};

struct FileVerdict {
  ReportVerdict kind = ReportVerdict::NotLookedAt;
  Seconds stamp = 0;      // Stamped: when
  Seconds end = 0;        // ValidUntil and Ended: of the signer's certificate; 0 when unknown
  std::string catalogue;  // InCatalogue: its name
};

// Without details: signed when certificates are listed. Without any a file is unsigned only if scans look for
// signatures in files of its extension at all.
[[nodiscard]] FileVerdict verdictOf(const ReportRecord& record) noexcept;

// With them: the best of the file's signatures at the time `now`, nested ones included, but one that does not match the
// file wins. A file without signatures of its own may be in `catalogue`, which is empty for none.
[[nodiscard]] FileVerdict verdictOf(const ReportRecord& record, const details_file& file, const CertificateBook& book,
                                    const std::string& catalogue, Seconds now);

// The day that goes with it, of the stamp or the end; empty without one.
[[nodiscard]] std::string dayOf(const FileVerdict& verdict);
// "stamped 2021-03-04", "in catalogue driver.cat", "unsigned"
[[nodiscard]] std::string wordsOf(const FileVerdict& verdict);
// Whether the file carries a signature that tells its signer.
[[nodiscard]] bool isSigned(ReportVerdict kind) noexcept;

// Seconds of a time in RFC 3339 and UTC, fractions cut; 0 for what is none.
[[nodiscard]] Seconds secondsOfTime(std::string_view text) noexcept;
