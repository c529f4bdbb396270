#include <gtest/gtest.h>

#include "details/details_reader.h"
#include "details/details_text.h"
#include "details/details_writer.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace {

using Details = ScratchTest;

std::string written(details_writer& writer, const details_line& line) {
  std::string_view text;
  EXPECT_EQ(std::visit([&](const auto& record) { return writer.write(record, text); }, line), 0U);
  return std::string(text);
}

TEST_F(Details, AreWrittenAsTheyWereReadAndFoundAgain) {
  const std::string sample = fixture_path("../details/sample.jsonl");
  details_reader reader;
  details_writer writer;
  details_line line = details_header();
  ASSERT_EQ(reader.open(fixture_wide("../details/sample.jsonl").c_str(), std::get<details_header>(line)), 0U);
  std::string again = written(writer, line);
  details_end end;
  EXPECT_EQ(reader.read_end(end), 0U);
  EXPECT_EQ(end.left_out_files, 4U);
  std::uint64_t file_at = 0;
  while (reader.next(line) == 0) {
    if (std::holds_alternative<details_file>(line)) file_at = reader.offset();
    again += written(writer, line);
  }
  EXPECT_EQ(again, file_text(sample));
  ASSERT_EQ(reader.next_at(file_at, line), 0U);
  EXPECT_EQ(std::get<details_file>(line).name_bytes, "\xFF");
}

TEST_F(Details, RefusesDamagedFilesWithTheLine) {
  const std::string sample = file_text(fixture_path("../details/sample.jsonl"));
  const std::string header = sample.substr(0, sample.find('\n'));
  std::string other = header;
  other.replace(other.find("\"version\":1"), 11, "\"version\":2");
  std::string many = R"({"type":"later","x":[)";
  for (int i = 0; i < 262144; ++i) many += "0,";
  const std::map<std::string, std::string> parts = {{"H", header},
                                                    {"H2", other},
                                                    {"E", sample.substr(sample.rfind("{\"type\""))},
                                                    {"MANY", many + "0]}"},
                                                    {"DEEP", R"({"x":)" + std::string(2000000, '[')},
                                                    {"LONG", std::string(std::size_t{4} << 20U, ' ')}};
  for (fixture_row row : fixture_rows("details/damaged.tsv")) {
    std::string text;
    for (const std::string& cell : fixture_cells(row.octets("lines"), '|')) {
      const auto part = parts.find(cell);
      text += part != parts.end() ? part->second : cell;
      if (!text.ends_with('\n')) text += '\n';
    }
    details_reader reader;
    details_line line = details_header();
    qerr_t code = reader.open(put(u"damaged", text).c_str(), std::get<details_header>(line));
    while (code == 0) code = reader.next(line);
    EXPECT_EQ(code == 1008 ? 0 : code, row.number("code")) << row.at("lines");
    EXPECT_EQ(row.number("code") != 0 ? reader.problem() : "", row["problem"]) << row.at("lines");
  }
}

TEST_F(Details, CutsALineAtWholeValuesAndCountsThem) {
  details_file file;
  file.complete = true;
  file.record.emplace().company_name = std::string(3500000, '\x01');
  file.certificates.resize(40000, {std::string(64, 'a'), std::string(64, 'b')});
  file.name = std::string(100000, '\xFF');  // each byte becomes three
  details_writer writer;
  const std::string text = written(writer, file);
  EXPECT_LE(text.size(), DETAILS_LARGEST_LINE);
  EXPECT_GT(text.size(), DETAILS_LARGEST_LINE - 70000);
  details_reader reader;
  details_line line = details_header();
  ASSERT_EQ(reader.open(put(u"cut", written(writer, details_header()) + text).c_str(), std::get<details_header>(line)),
            0U);
  ASSERT_EQ(reader.next(line), 0U) << reader.problem();
  const auto& read = std::get<details_file>(line);
  EXPECT_FALSE(read.complete);
  ASSERT_EQ(read.problems.size(), 2U);
  EXPECT_EQ(read.problems[0].code, "company_name_cut");
  EXPECT_EQ(read.problems[1].code, "certificates_cut");
  EXPECT_EQ(read.certificates.size() + read.problems[1].count, 40000U);
}

TEST(DetailsText, TellTimesToTheNanosecond) {
  EXPECT_EQ(details_time_text(1709251199, 100), "2024-02-29T23:59:59.000000100Z");
  EXPECT_EQ(details_time_text(-62167219200), "0000-01-01T00:00:00Z");
  EXPECT_EQ(details_time_text(253402300800, 0), "");
}

}  // namespace
