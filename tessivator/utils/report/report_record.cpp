#include "utils/report/report_record.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace {

void countUp(std::uint64_t& sum, std::uint64_t more) noexcept {
  sum += std::min(more, std::numeric_limits<std::uint64_t>::max() - sum);
}

void appendCount(std::string& text, std::uint64_t count, const char* one, const char* many) {
  if (count == 0) return;
  if (!text.empty()) text += ", ";
  text += std::to_string(count) + ' ' + (count == 1 ? one : many);
}

constexpr std::string_view ended_early = "the walk ended early";

}  // namespace

void ReportRecord::clear() noexcept {
  for (std::string& text : texts) text.clear();
  present.fill(false);
  certificates.clear();
}

void ReportOmissions::add(const ReportOmissions& other) noexcept {
  countUp(directories, other.directories);
  countUp(files, other.files);
  endedEarly = endedEarly || other.endedEarly;
}

std::string ReportOmissions::text() const {
  std::string text;
  appendCount(text, directories, "directory", "directories");
  appendCount(text, files, "file", "files");
  if (endedEarly) text.append(text.empty() ? "" : ", ").append(ended_early);
  return text;
}

void ReportOmissions::read(std::string_view comment) {
  constexpr std::string_view start = " incomplete: ";
  if (!comment.starts_with(start)) return;
  comment.remove_prefix(start.size());
  while (comment.ends_with(' ')) comment.remove_suffix(1);
  while (!comment.empty()) {
    const std::size_t comma = std::min(comment.find(", "), comment.size());
    const std::string_view item = comment.substr(0, comma);
    comment.remove_prefix(std::min(comma + 2, comment.size()));
    std::uint64_t count = 0;
    const auto [end, failure] = std::from_chars(item.data(), item.data() + item.size(), count);
    const std::string_view what = item.substr(static_cast<std::size_t>(end - item.data()));
    if (failure == std::errc() && what.starts_with(" director")) {
      countUp(directories, count);
    } else if (failure == std::errc() && what.starts_with(" file")) {
      countUp(files, count);
    } else {
      endedEarly = true;  // whatever else a scan may say: it is not whole
    }
  }
}
