#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "compound_builder.h"
#include "memory_source.h"
#include "msi/package_object.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"

namespace {

constexpr std::string_view pool("\xE4\x04\0\0\x0B\0\1\0\4\0\1\0", 12);  // code page 1252; lengths 11 and 4
constexpr std::string_view rows("\1\0\2\0", 4);

compound_builder package(unsigned sector_shift) {
  compound_builder builder(sector_shift);
  builder.add(msi_table_stream_name("_StringPool"), pool)
      .add(msi_table_stream_name("_StringData"), "ProductNameName")
      .add(msi_table_stream_name("Property"), rows);
  return builder;
}

std::u16string product_name(const std::shared_ptr<msi_source>& file) {
  const auto compound = compound_file::open(file);
  const auto table = compound ? property_table::open(*compound) : nullptr;
  std::u16string value;
  return table && table->value("ProductName", value) == property_result::found ? value : u"(unreadable)";
}

std::shared_ptr<memory_source> in_memory(std::vector<std::byte> bytes) {
  return std::make_shared<memory_source>(std::move(bytes));
}

TEST(CompoundFile, ReadsLittleOfALargePackage) {
  struct {
    unsigned sector_shift;
    std::size_t size;
  } const cases[] = {{9, 5000}, {9, 8U << 20}, {12, 5000}, {12, 8U << 20}};  // the second: more than 109 table sectors
  for (const auto& c : cases) {
    compound_builder builder = package(c.sector_shift);
    builder.add(u"Cabinet", std::string(c.size, 'c'));
    const auto file = in_memory(builder.build());
    EXPECT_EQ(product_name(file), u"Name") << c.sector_shift << ' ' << c.size;
    EXPECT_LT(file->bytes_read, 64000 + c.size / 16) << c.sector_shift << ' ' << c.size;
  }
}

TEST(CompoundFile, ReadsACutLastSectorAsZeros) {
  std::vector<std::byte> bytes = package(9).build();
  while (bytes.back() == std::byte{0xFF}) bytes.pop_back();  // the free end of the sector table
  bytes.resize(bytes.size() + 3, std::byte{0xFF});
  EXPECT_EQ(product_name(in_memory(std::move(bytes))), u"Name");
}

// Streams that hang in one line are as deep as they are many.
TEST(CompoundFile, LimitsTheDirectory) {
  struct {
    unsigned streams;
    bool sound;
  } const cases[] = {{5000, true}, {60000, true}, {COMPOUND_MAX_ENTRIES + 10, false}};
  for (const auto& c : cases) {
    compound_builder builder = package(9);
    for (unsigned i = 3; i < c.streams; ++i) builder.add(u"s" + std::u16string(1 + i % 20, u'x'), "");
    EXPECT_EQ(product_name(in_memory(builder.build())), c.sound ? u"Name" : u"(unreadable)") << c.streams;
  }
}

// ---- The fixtures --------------------------------------------------------------------------------------------------

std::vector<std::filesystem::path> fixtures() {
  std::vector<std::filesystem::path> paths;
  const char* root = std::getenv("TESSIVATOR_FIXTURES");
  const std::string folder = std::string(root != nullptr ? root : "fixtures") + "/packages";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) paths.push_back(entry.path());
  }
  return paths;
}

std::string everything(const std::filesystem::path& path) {
  const auto file = msi_open_file(path.u16string().c_str());
  std::string all;
  const auto compound = compound_file::open(file);
  if (!compound) return "none";
  if (const auto table = property_table::open(*compound)) {
    for (const char* name : {"ProductName", "Manufacturer", "ProductVersion", "None"}) {
      std::u16string value;
      all += std::to_string(static_cast<int>(table->value(name, value))) + ' ' + std::to_string(value.size()) + ' ';
    }
  }
  QmemPtr<std::byte> bytes;
  std::uint32_t length = 0;
  return all + std::to_string(signature_stream_read(*compound, bytes, length)) + ' ' + std::to_string(length);
}

TEST(CompoundFile, ServesEightThreadsAtOnce) {
  const auto paths = fixtures();
  std::vector<std::string> expected;
  expected.reserve(paths.size());
  for (const auto& path : paths) expected.push_back(everything(path));
  std::vector<std::vector<std::string>> got(8);
  std::vector<std::thread> threads;
  threads.reserve(got.size());
  for (auto& mine : got) {
    threads.emplace_back([&mine, &paths] {
      for (const auto& path : paths) mine.push_back(everything(path));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& mine : got) EXPECT_EQ(mine, expected);
}

// Every damage of one byte to the structures of a package ends quickly and without a fault, whatever comes out.
TEST(CompoundFile, SurvivesAnyChangedByte) {
  const std::vector<std::byte> whole = package(9).build();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x7F, 0xFE, 0xFF}) {
      std::vector<std::byte> bytes = whole;
      bytes[at] = static_cast<std::byte>(value);
      const std::u16string name = product_name(in_memory(std::move(bytes)));
      EXPECT_LE(name.size(), whole.size());
    }
  }
}

}  // namespace
