#include "utils/report/report_verdict.h"

#include <algorithm>

#include "utils/report/report_text.h"

namespace {

// A scan looks for signatures in files of these extensions only (signed_kinds in brantle.cpp).
constexpr std::array<std::string_view, 9> searched_extensions{"exe", "dll", "cab", "cat", "ctl",
                                                              "msi", "xpi", "ocx", "sys"};

bool isSearched(std::string_view path) noexcept {
  const std::string_view name = splitPath(path).name;
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string_view extension = name.substr(dot + 1);
  const auto sameLetter = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + ('a' - 'A') : a) == b; };
  return std::any_of(searched_extensions.begin(), searched_extensions.end(), [&](std::string_view one) {
    return std::equal(extension.begin(), extension.end(), one.begin(), one.end(), sameLetter);
  });
}

}  // namespace

ReportVerdict verdictOf(const ReportRecord& record) noexcept {
  if (!record.certificates.empty()) return ReportVerdict::Signed;
  return isSearched(record.name()) ? ReportVerdict::Unsigned : ReportVerdict::NotLookedAt;
}
