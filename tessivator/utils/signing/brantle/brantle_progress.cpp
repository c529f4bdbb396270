#include "utils/signing/brantle/brantle_progress.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "common/qlib/qpath.h"
#include "utils/signing/brantle/brantle_stderr.h"

namespace {

constexpr std::chrono::milliseconds between_lines{250};

bool isWanted() {
  const char* const asked = std::getenv("BRANTLE_PROGRESS");  // NOLINT(concurrency-mt-unsafe): no thread runs yet
  if (asked == nullptr) return brantle_stderr_is_terminal();
  const std::string_view text(asked);
  return text == "1" || (text != "0" && brantle_stderr_is_terminal());
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

std::string totalsText(const BrantleTotals& totals) {
  return std::to_string(totals.files) + " files, " + std::to_string(totals.records) + " records, " +
         std::to_string(totals.certificates) + " certificates, " + sizeText(static_cast<double>(totals.bytes));
}

// East Asian characters take two columns; what only might is counted so as well, since a line that wraps cannot be
// erased.
std::size_t columnsOf(qchar unit) { return unit >= 0x1100 ? 2 : 1; }

// The end of `text` that fits into `columns`, without what would move the cursor or turn the text's direction.
std::u16string tailOf(std::u16string_view text, std::size_t columns) {
  std::size_t begin = text.size();
  std::size_t taken = 0;
  for (; begin > 0 && taken + columnsOf(text[begin - 1]) <= columns; --begin) taken += columnsOf(text[begin - 1]);
  std::u16string tail(text.substr(begin));
  for (qchar& unit : tail) {
    const bool control = unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
    const bool format =
        (unit >= 0x200B && unit <= 0x200F) || (unit >= 0x2028 && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
    if (control || format) unit = u'?';
  }
  return tail;
}

}  // namespace

BrantleProgress::BrantleProgress() : shown_(isWanted()), started_(Clock::now()), next_(started_ + between_lines) {}

void BrantleProgress::onFile(const std::u16string& path, const BrantleTotals& totals) noexcept try {
  if (!shown_ || Clock::now() < next_) return;
  next_ = Clock::now() + between_lines;
  show(path, totals);
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}

void BrantleProgress::show(const std::u16string& path, const BrantleTotals& totals) {
  const double seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  std::u16string line =
      wide(totalsText(totals) + ", " + sizeText(static_cast<double>(totals.bytes) / seconds) + "/s  ");
  const std::size_t cut = path.rfind(qpath_separator(path.c_str()));
  // The last column stays free: some terminals wrap as soon as it is written.
  const std::size_t room = brantle_stderr_width() - 1;
  if (line.size() < room) line += tailOf(std::u16string_view(path).substr(0, cut), room - line.size());
  erase();
  for (const qchar unit : line) columns_ += columnsOf(unit);
  brantle_stderr_write(line);
}

void BrantleProgress::erase() {
  if (columns_ == 0) return;
  brantle_stderr_write(u"\r" + std::u16string(columns_, u' ') + u"\r");
  columns_ = 0;
}

void BrantleProgress::finish(const BrantleTotals& totals) noexcept try {
  if (!shown_) return;
  erase();
  const double seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  std::array<char, 32> time{};
  (void)std::snprintf(time.data(), time.size(), " in %.1f s\n", seconds);
  brantle_stderr_write(wide(totalsText(totals) + time.data()));
} catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a line that nobody depends on
}
