// What a survey says of a file's signature. One place decides it, for the page, the table and the comparison.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "utils/report/report_record.h"

#define REPORT_VERDICT(name, words) name,
enum class ReportVerdict : std::uint8_t {
#include "utils/report/report_names.def"
};

#define REPORT_VERDICT(name, words) std::string_view(words),
inline constexpr std::array REPORT_VERDICT_WORDS{
#include "utils/report/report_names.def"
};

// Signed when certificates are listed. Without any a file is unsigned only if scans look for signatures in files of
// its extension at all.
[[nodiscard]] ReportVerdict verdictOf(const ReportRecord& record) noexcept;
