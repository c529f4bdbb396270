// The reader of reports on any info.xml: it ends with records or with one error, keeps its bounds, and finds each
// record again by its offset. What passes for the bytes of a scan, to be spliced as they are, is read alike.
#include "utils/report/report_pieces.h"
#include "utils/report/report_reader.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "target.h"

namespace fs = std::filesystem;

namespace {

void comparePieces(const fs::path& path, const std::vector<std::pair<std::uint64_t, ReportRecord>>& first,
                   std::uint64_t records, const ReportOmissions& omissions) {
  ReportPieces pieces(path.u16string(), true);
  std::uint64_t taken = 0;
  auto found = pieces.next();
  for (; found == ReportPieces::Found::record; found = pieces.next(), ++taken) {
    check(taken < records);
    if (taken >= first.size()) continue;
    const ReportRecord& same = first[taken].second;
    check(unescaped(pieces.escapedName()) == same.name() && pieces.certificates() == same.certificates);
  }
  if (found == ReportPieces::Found::odd) return;
  check(taken == records && pieces.omissions().text() == omissions.text());
}

}  // namespace

void fuzz(Bytes input) {
  static const fs::path folder = fs::temp_directory_path() / ("fuzz_report." + std::to_string(std::random_device()()));
  constexpr std::size_t most_again = 8;  // each is an opening of the file
  fs::create_directories(folder);
  std::ofstream(folder / "info.xml", std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
  ReportReader reader(folder.u16string());
  std::uint64_t records = 0;
  std::vector<std::pair<std::uint64_t, ReportRecord>> first;
  try {
    reader.read([&](const ReportRecord& record, std::uint64_t offset) {
      check(offset < input.size() && record.present[static_cast<std::size_t>(ReportField::Name)]);
      check(record.certificates.size() <= REPORT_MAX_CERTIFICATES);
      for (const std::string& text : record.texts) check(text.size() <= REPORT_MAX_TEXT);
      ++records;
      if (first.size() < most_again) first.emplace_back(offset, record);
    });
  } catch (const ReportError& error) {
    check(!error.text().empty());
  }
  for (const auto& [offset, record] : first) {
    const ReportRecord again = reader.readAt(offset);
    check(again.texts == record.texts && again.certificates == record.certificates);
  }
  comparePieces(folder / "info.xml", first, records, reader.omissions());
  fs::remove_all(folder);
}
