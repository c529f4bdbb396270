#include <glib.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "compound_builder.h"
#include "memory_source.h"
#include "msi/compound_check.h"
#include "msi/compound_file.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"

namespace {

constexpr std::string_view pool("\xE4\x04\0\0\x0B\0\1\0\4\0\1\0", 12);  // code page 1252; lengths 11 and 4
constexpr std::string_view rows("\1\0\2\0", 4);

std::u16string wide(const std::string& utf8) {
  std::u16string text;  // all units of these names take three bytes
  for (std::size_t i = 0; i + 2 < utf8.size(); i += 3) {
    text.push_back(static_cast<char16_t>((utf8[i] & 0x0F) << 12 | (utf8[i + 1] & 0x3F) << 6 | (utf8[i + 2] & 0x3F)));
  }
  return text;
}

compound_builder package(unsigned sector_shift) {
  compound_builder builder(sector_shift);
  builder.add(wide(msi_table_stream_name("_StringPool")), pool)
      .add(wide(msi_table_stream_name("_StringData")), "ProductNameName")
      .add(wide(msi_table_stream_name("Property")), rows);
  return builder;
}

std::u16string product_name(const std::shared_ptr<msi_source>& file) {
  const auto table = property_table::open(file);
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

TEST(CompoundFile, LimitsTheDirectory) {
  struct {
    unsigned streams;
    bool sound;
  } const cases[] = {{1000, true}, {COMPOUND_MAX_DEPTH + 10, false}, {COMPOUND_MAX_ENTRIES + 10, false}};
  for (const auto& c : cases) {
    compound_builder builder = package(9);
    for (unsigned i = 3; i < c.streams; ++i) builder.add(u"s" + std::u16string(1 + i % 20, u'x'), "");
    const auto file = in_memory(builder.build());
    std::size_t stack = 0;
    EXPECT_EQ(compound_is_sound(*file, stack), c.sound) << c.streams;
    EXPECT_EQ(product_name(file), c.sound ? u"Name" : u"(unreadable)") << c.streams;
  }
}

void read_on_stack(std::size_t bytes, void* (*body)(void*), void* argument) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, body, argument), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

// Hosts give their threads as little as a quarter of a mebibyte: the deepest directory fails there, and does no harm.
TEST(CompoundFile, KnowsTheStackThatItNeeds) {
  struct job {
    std::shared_ptr<msi_source> file;
    std::u16string name;
  };
  const auto body = [](void* argument) -> void* {
    auto* work = static_cast<job*>(argument);
    work->name = product_name(work->file);
    return nullptr;
  };
  compound_builder builder = package(9);
  for (unsigned i = 3; i < COMPOUND_MAX_DEPTH; ++i) builder.add(u"Stream", "");
  job work{in_memory(builder.build()), u""};
  for (const auto& [kib, expected] : {std::pair{256, u"(unreadable)"}, {1024, u"Name"}}) {
    read_on_stack(static_cast<std::size_t>(kib) * 1024, body, &work);
    EXPECT_EQ(work.name, expected) << kib;
  }
}

TEST(CompoundFile, RefusesOtherClasses) {
  std::vector<std::byte> bytes = package(9).build();
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const std::size_t at = text.find(std::string_view("\x84\x10\x0C\0\0\0\0\0\xC0", 9));
  ASSERT_NE(at, std::string_view::npos);
  for (const auto& [kind, expected] : {std::pair{0x82, u"Name"}, {0x86, u"Name"}, {0x85, u"(unreadable)"}}) {
    bytes[at] = static_cast<std::byte>(kind);
    EXPECT_EQ(product_name(in_memory(bytes)), expected) << kind;
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
  if (const auto table = property_table::open(file)) {
    for (const char* name : {"ProductName", "Manufacturer", "ProductVersion", "None"}) {
      std::u16string value;
      all += std::to_string(static_cast<int>(table->value(name, value))) + ' ' + std::to_string(value.size()) + ' ';
    }
  }
  QmemPtr<std::byte> bytes;
  std::uint32_t length = 0;
  return all + std::to_string(signature_stream_read(file, bytes, length)) + ' ' + std::to_string(length);
}

TEST(CompoundFile, KeepsTheReadersMessagesFromTheHost) {
  const auto paths = fixtures();
  ASSERT_GT(paths.size(), 100U);
  testing::internal::CaptureStderr();
  for (const auto& path : paths) (void)everything(path);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  // What the host's own use of the library has to say still reaches the host.
  testing::internal::CaptureStderr();
  g_log("libgsf:msole", G_LOG_LEVEL_WARNING, "from the host");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("from the host"), std::string::npos);
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
