#include "record/inv_version.h"

#include "record/new_record.h"
#include "record/version_facts.h"
#include "support/fixture_table.h"

namespace {

// Reads a copy that ends where the resource ends, so that a sanitizer sees every step beyond.
qerr_t read(const std::string& resource, std::size_t& longest) {
  const auto exact = std::make_unique<char[]>(resource.size());
  resource.copy(exact.get(), resource.size());
  const auto record = new_record();
  inv_version_outcome outcome{};
  const qerr_t code = inv_read_version(std::as_bytes(std::span(exact.get(), resource.size())), *record, outcome);
  longest = std::max(qstr_len(record->CompanyName), qstr_len(record->ProductName));
  record_version_facts facts;
  record_add_version(std::as_bytes(std::span(exact.get(), resource.size())), facts);
  return code;
}

// Every 16-bit field at its extremes, and every place where the resource may end: no access leaves the resource (the
// sanitizers' finding), no walk hangs, and no value has more than the resource holds. What each form of one yields
// stands in expected/resources.tsv.
TEST(VersionWalk, StaysInsideWhateverTheFieldsSay) {
  const std::string good =
      file_text(fixture_path("../../fuzz/corpus/fuzz_image/version_other_child_first.exe.16.1033"));
  std::size_t longest = 0;
  ASSERT_EQ(read(good, longest), QERR_OK);
  ASSERT_EQ(longest, 13U);  // "Fixture Works"
  for (std::size_t at = 0; at + 2 <= good.size(); at += 2) {
    for (const unsigned value : {0x0000U, 0x0001U, 0x0008U, 0x002CU, 0x7FFFU, 0xFFFDU, 0xFFFFU}) {
      std::string changed = good;
      changed[at] = static_cast<char>(value);
      changed[at + 1] = static_cast<char>(value >> 8);
      for (const std::size_t size : {good.size(), std::size_t{8000}}) {
        changed.resize(size);
        (void)read(changed, longest);
        EXPECT_LE(longest, size / 2);
      }
    }
  }
  for (std::size_t size = 0; size <= good.size(); ++size) {
    std::string cut = good.substr(0, size);
    cut.replace(0, 2, std::min<std::size_t>(size, 2), '\0');  // else the declared length refuses it
    EXPECT_EQ(read(cut, longest), size < 46 ? QERR_INVALID : QERR_OK) << size;
  }
}

}  // namespace
