// Cabinets: every field of the header that leads to the signature.
#include "sgn/sgn_cab.h"

#include <gtest/gtest.h>

#include "sgn/support.h"
#include "support/faulty_provider.h"

namespace {

using SgnCab = Runtime;

Outcome extract_cabinet(const fs::path& path, const fs::path& folder) {
  sgn_p7* out = nullptr;
  const qerr_t code = sgn_extract_cab_cert_alloc(path.u16string().c_str(), &out);
  const SgnP7Owner p7(out);
  EXPECT_EQ(out == nullptr, code != QERR_OK);
  return code != QERR_OK ? Outcome{code, {}} : process(p7.get(), folder, 0);
}

TEST_F(SgnCab, FollowsTheTable) {
  const fs::path folder = scratch_folder("cabinets");
  const auto rows = fixture_table("cabinets");
  ASSERT_GT(rows.size(), 60U);
  for (const fixture_row& row : rows) {
    SCOPED_TRACE(row.at("file"));
    const Outcome outcome = extract_cabinet(fixture_path(row.at("file")), folder);
    EXPECT_EQ(static_cast<std::int32_t>(outcome.code), std::stoi(row.at("extraction")));
    EXPECT_EQ(outcome.names.size(), std::stoul(row.at("named")));
    expect_certificate_files(folder, outcome.names);
  }
}

// Each step's failure comes back as it is: the open, two header reads, the reserve, the size, then to the signature's
// head and the same for all of it.
TEST_F(SgnCab, PassesOnWhatTheDiskAnswers) {
  const struct {
    file_op op;
    std::uint32_t nth;
  } steps[] = {{file_op::open, 1}, {file_op::read, 1}, {file_op::read, 2}, {file_op::read, 3}, {file_op::size, 1},
               {file_op::seek, 1}, {file_op::read, 4}, {file_op::seek, 2}, {file_op::read, 5}};
  for (const auto& step : steps) {
    faulty_provider disk;
    disk.fail(step.op, step.nth, QERR_PERMISSION);
    EXPECT_EQ(extract_cabinet(fixture_path("cabinets/signed_rsa.cab"), "").code, QERR_PERMISSION)
        << static_cast<int>(step.op) << " " << step.nth;
  }
  faulty_provider disk;
  disk.most_read = 7;
  EXPECT_EQ(extract_cabinet(fixture_path("cabinets/signed_rsa.cab"), scratch_folder("short_reads")).names.size(), 1U);
}

}  // namespace
