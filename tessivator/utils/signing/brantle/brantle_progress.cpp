#include "utils/signing/brantle/brantle_progress.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "common/qlib/qconsole.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qprintable.h"

namespace {

constexpr std::chrono::milliseconds between_lines{250};

bool isWanted() {
  const char* const asked = std::getenv("BRANTLE_PROGRESS");  // NOLINT(concurrency-mt-unsafe): no thread runs yet
  if (asked == nullptr) return qconsole_error_is_terminal();
  const std::string_view text(asked);
  return text == "1" || (text != "0" && qconsole_error_is_terminal());
}

std::u16string wide(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

std::string sizeText(double bytes) {
  static constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  for (; bytes >= 1000 && unit + 1 < units.size(); ++unit) bytes /= 1000;
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
  return text.data();
}

// The end of `text` that fits into `columns`.
std::u16string tailOf(std::u16string_view text, std::size_t columns) {
  std::size_t begin = text.size();
  std::size_t taken = 0;
  for (; begin > 0 && taken + qconsole_columns(text[begin - 1]) <= columns; --begin) {
    taken += qconsole_columns(text[begin - 1]);
  }
  return qprintable(text.substr(begin));
}

}  // namespace

BrantleProgress::BrantleProgress(bool certsOnly)
    : shown_(isWanted()), certsOnly_(certsOnly), started_(Clock::now()), next_(started_ + between_lines) {
  if (shown_) qfile_watch_reads(this);
}

BrantleProgress::~BrantleProgress() {
  if (shown_) qfile_watch_reads(nullptr);
}

void BrantleProgress::onFile(const std::u16string& path, const BrantleTotals& totals) noexcept try {
  if (!shown_) return;
  path_ = path;
  totals_ = totals;
  showWhenDue();
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

// Bytes that are read twice count twice until the file is done; the line is about whether it moves.
void BrantleProgress::on_read(std::uint32_t bytes) noexcept {
  totals_.bytes += bytes;
  showWhenDue();
}

void BrantleProgress::showWhenDue() noexcept try {
  if (Clock::now() < next_) return;
  next_ = Clock::now() + between_lines;
  qconsole_show_status(line());
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

std::u16string BrantleProgress::line() const {
  std::string rate;
  if (!certsOnly_) rate = ", " + sizeText(static_cast<double>(totals_.bytes) / seconds()) + "/s";
  std::u16string text = wide(totalsText() + rate + "  ");
  const std::size_t cut = path_.rfind(qpath_separator(path_.c_str()));
  // The last column stays free: some terminals wrap as soon as it is written.
  const std::size_t room = qconsole_error_width() - 1;
  if (text.size() > room) {
    constexpr std::u16string_view ellipsis = u"\u2026";
    const std::size_t columns = qconsole_columns(ellipsis.front());
    text.resize(room > columns ? room - columns : 0);
    return text.append(ellipsis);
  }
  return text + tailOf(std::u16string_view(path_).substr(0, cut), room - text.size());
}

std::string BrantleProgress::totalsText() const {
  std::string text = std::to_string(totals_.files) + " files, ";
  if (!certsOnly_) text += std::to_string(totals_.records) + " records, ";
  text += std::to_string(totals_.certificates) + " certificates";
  return certsOnly_ ? text : text + ", " + sizeText(static_cast<double>(totals_.bytes));
}

double BrantleProgress::seconds() const { return std::chrono::duration<double>(Clock::now() - started_).count(); }

void BrantleProgress::finish(const BrantleTotals& totals, const std::string& remarks) noexcept try {
  if (!shown_) return;
  totals_ = totals;
  std::array<char, 32> time{};
  (void)std::snprintf(time.data(), time.size(), " in %.1f s", seconds());
  qconsole_put_error(wide(totalsText() + time.data() + remarks + "\n"));
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}
