#include "inv/inv_version.h"

#include <algorithm>

#include "inv/record.h"
#include "support/fixture_table.h"

namespace {

// The version resource of an image; what each form of one yields stands in expected/resources.tsv.
std::vector<std::byte> resource_of(const char* image) {
  const std::vector<std::byte> bytes = fixture_bytes(std::string("images/resources/") + image);
  const auto key = std::as_bytes(std::span(std::u16string_view(u"VS_VERSION_INFO")));
  const auto found = std::search(bytes.begin(), bytes.end(), key.begin(), key.end());
  EXPECT_GE(found - bytes.begin(), 6);
  const auto start = found - 6;
  return {start, start + std::to_integer<int>(start[0]) + std::to_integer<int>(start[1]) * 256};
}

// Reads a copy that ends where the resource ends, so that a sanitizer sees every step beyond.
qerr_t read(const std::vector<std::byte>& resource, std::size_t& longest) {
  const auto exact = std::make_unique<std::byte[]>(resource.size());
  std::copy(resource.begin(), resource.end(), exact.get());
  const auto record = new_record();
  inv_version_outcome outcome{};
  const qerr_t code = inv_read_version(Bytes(exact.get(), resource.size()), *record, outcome);
  longest = std::max(qstr_len(record->CompanyName), qstr_len(record->ProductName));
  return code;
}

// Every 16-bit field at its extremes, and every place where the resource may end: no access leaves the resource (the
// sanitizers' finding), no walk hangs, and no value has more than the resource holds.
TEST(VersionWalk, StaysInsideWhateverTheFieldsSay) {
  const std::vector<std::byte> good = resource_of("version_other_child_first.exe");
  std::size_t longest = 0;
  ASSERT_EQ(read(good, longest), QERR_OK);
  ASSERT_EQ(longest, 13U);  // "Fixture Works"
  for (std::size_t at = 0; at + 2 <= good.size(); at += 2) {
    for (const unsigned value : {0x0000U, 0x0001U, 0x0008U, 0x002CU, 0x7FFFU, 0xFFFDU, 0xFFFFU}) {
      std::vector<std::byte> changed = good;
      changed[at] = static_cast<std::byte>(value);
      changed[at + 1] = static_cast<std::byte>(value >> 8);
      for (const std::size_t size : {good.size(), std::size_t{8000}}) {
        changed.resize(size);
        (void)read(changed, longest);
        EXPECT_LE(longest, size / 2);
      }
    }
  }
  for (std::size_t size = 0; size <= good.size(); ++size) {
    std::vector<std::byte> cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    std::fill_n(cut.begin(), std::min<std::size_t>(size, 2), std::byte{0});  // else the declared length refuses it
    EXPECT_EQ(read(cut, longest), size < 46 ? QERR_INVALID : QERR_OK) << size;
  }
}

}  // namespace
