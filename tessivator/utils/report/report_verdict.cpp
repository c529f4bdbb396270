#include "utils/report/report_verdict.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "details/details_text.h"
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

bool isInside(Seconds time, const CertificateBook::Entry& certificate) noexcept {
  return time >= certificate.notBefore && time <= certificate.notAfter;
}

// Of one signer, and the stamps of its signature.
FileVerdict verdictOfSigner(const CertificateBook::Entry& certificate, const std::vector<details_stamp>& stamps,
                            Seconds now) {
  FileVerdict verdict;
  verdict.end = certificate.notAfter;
  verdict.kind = now > certificate.notAfter ? ReportVerdict::Ended : ReportVerdict::ValidUntil;
  if (certificate.isLifetime) return verdict;
  for (const details_stamp& stamp : stamps) {
    const Seconds time = secondsOfTime(stamp.time);
    if (time == 0 || !isInside(time, certificate)) continue;
    verdict.kind = ReportVerdict::Stamped;
    verdict.stamp = verdict.stamp == 0 ? time : std::min(verdict.stamp, time);
  }
  return verdict;
}

// What comes first in the list of verdicts is better, and so is what ends later.
bool isBetter(const FileVerdict& one, const FileVerdict& other) noexcept {
  return one.kind != other.kind ? one.kind < other.kind : one.end > other.end;
}

void judge(const details_signature& signature, const CertificateBook& book, Seconds now, FileVerdict& best,
           bool& doesNotMatch) {
  doesNotMatch = doesNotMatch || signature.signed_digest_matches == false;
  FileVerdict own;
  own.kind = ReportVerdict::Undecodable;
  for (const details_signer& signer : signature.signers) {
    const CertificateBook::EntryPtr certificate = book.findDigest(signer.certificate);
    if (!certificate || certificate->isProblem) continue;
    const FileVerdict verdict = verdictOfSigner(*certificate, signature.stamps, now);
    if (isBetter(verdict, own)) own = verdict;
  }
  if (isBetter(own, best)) best = own;
  for (const details_signature& nested : signature.nested) judge(nested, book, now, best, doesNotMatch);
}

bool hasProblem(const details_file& file, std::string_view code) noexcept {
  return std::any_of(file.problems.begin(), file.problems.end(),
                     [&](const details_problem& problem) { return problem.code == code; });
}

// Of a file of whose signatures the details say nothing.
FileVerdict verdictWithout(const ReportRecord& record, const details_file& file) {
  FileVerdict verdict = verdictOf(record);
  if (verdict.kind == ReportVerdict::Signed) verdict.kind = ReportVerdict::Undecodable;
  if (file.kind != details_kind::other) verdict.kind = ReportVerdict::Unsigned;
  if (hasProblem(file, "signatures_unreadable")) verdict.kind = ReportVerdict::Undecodable;
  if (hasProblem(file, "open_failed")) verdict.kind = ReportVerdict::NotLookedAt;
  return verdict;
}

// The number in `text` from `at` on, which has `digits` digits.
bool readNumber(std::string_view text, std::size_t at, std::size_t digits, unsigned& number) noexcept {
  const char* const end = text.data() + at + digits;
  const auto [stop, failure] = std::from_chars(text.data() + at, end, number);
  return failure == std::errc() && stop == end;
}

}  // namespace

FileVerdict verdictOf(const ReportRecord& record) noexcept {
  FileVerdict verdict;
  verdict.kind = isSearched(record.name()) ? ReportVerdict::Unsigned : ReportVerdict::NotLookedAt;
  if (!record.certificates.empty()) verdict.kind = ReportVerdict::Signed;
  return verdict;
}

FileVerdict verdictOf(const ReportRecord& record, const details_file& file, const CertificateBook& book,
                      const std::string& catalogue, Seconds now) {
  FileVerdict best = verdictWithout(record, file);
  bool doesNotMatch = false;
  for (const details_signature& signature : file.signatures) judge(signature, book, now, best, doesNotMatch);
  if (doesNotMatch) return {ReportVerdict::DoesNotMatch, 0, 0, {}};
  if (!catalogue.empty() && best.kind > ReportVerdict::InCatalogue) {
    return {ReportVerdict::InCatalogue, 0, 0, catalogue};
  }
  return best;
}

std::string dayOf(const FileVerdict& verdict) {
  const Seconds time = verdict.stamp != 0 ? verdict.stamp : verdict.end;
  return time == 0 ? std::string() : details_time_text(time).substr(0, 10);
}

std::string wordsOf(const FileVerdict& verdict) {
  std::string words(REPORT_VERDICT_WORDS[static_cast<std::size_t>(verdict.kind)]);
  for (const std::string& more : {dayOf(verdict), verdict.catalogue}) {
    if (!more.empty()) words += ' ' + more;
  }
  return words;
}

bool isSigned(ReportVerdict kind) noexcept {
  return kind <= ReportVerdict::Ended || kind == ReportVerdict::DoesNotMatch;
}

Seconds secondsOfTime(std::string_view text) noexcept {
  std::array<unsigned, 6> parts{};
  constexpr std::array<std::size_t, 6> places{0, 5, 8, 11, 14, 17};
  if (text.size() < 20 || text.back() != 'Z') return 0;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!readNumber(text, places[i], i == 0 ? 4 : 2, parts[i])) return 0;
  }
  using namespace std::chrono;
  const year_month_day date = year(static_cast<int>(parts[0])) / month(parts[1]) / day(parts[2]);
  if (!date.ok()) return 0;
  return duration_cast<seconds>(sys_days(date).time_since_epoch() + hours(parts[3]) + minutes(parts[4]) +
                                seconds(parts[5]))
      .count();
}
