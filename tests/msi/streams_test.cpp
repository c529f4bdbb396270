// The streams of a package, read from memory.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "common/qlib/qerr.h"
#include "msi/msi_signature.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"
#include "msi/string_pool.h"

namespace {

class memory_source final : public msi_source {
 public:
  explicit memory_source(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] std::uint64_t size() const noexcept override { return bytes_.size(); }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override {
    if (offset > bytes_.size() || out.size() > bytes_.size() - offset) return false;
    std::memcpy(out.data(), bytes_.data() + offset, out.size());
    return true;
  }

 private:
  std::string bytes_;
};

std::string words(std::initializer_list<unsigned> values) {
  std::string bytes;
  for (const unsigned value : values) {
    bytes.push_back(static_cast<char>(value));
    bytes.push_back(static_cast<char>(value >> 8));
  }
  return bytes;
}

// The text of `number` in a pool of `entries` behind a header.
std::u16string text_of(unsigned code_page, const std::string& entries, const std::string& data, std::uint32_t number) {
  memory_source pool(words({code_page & 0xFFFF, code_page >> 16}) + entries);
  memory_source bytes(data);
  string_pool strings(pool, bytes);
  std::u16string text;
  return strings.open() && strings.text(number, text) ? text : u"(unreadable)";
}

TEST(StringPool, FindsEveryFormOfEntry) {
  const std::string filler(70000, 'x');
  const std::string data = "one" + filler + "two";
  const std::u16string wide_filler(4000, u'x');
  struct {
    const char* what;
    std::string entries;
    std::string data;
    std::uint32_t number;
    std::u16string expected;
  } const cases[] = {
      {"first", words({3, 1, 3, 1}), "onetwo", 1, u"one"},
      {"second", words({3, 1, 3, 1}), "onetwo", 2, u"two"},
      {"number 0 is the empty text", words({3, 1}), "one", 0, u""},
      {"free numbers count", words({3, 1, 0, 0, 3, 1}), "onetwo", 3, u"two"},
      {"a free number has no text", words({3, 1, 0, 0, 3, 1}), "onetwo", 2, u"(unreadable)"},
      {"past the pool", words({3, 1}), "one", 2, u"(unreadable)"},
      {"no references", words({3, 0, 3, 1}), "onetwo", 1, u"one"},
      {"long, length follows", words({3, 1, 0, 5, 70000 & 0xFFFF, 1, 3, 1}), data, 2, wide_filler},
      {"behind a long one", words({3, 1, 0, 5, 70000 & 0xFFFF, 1, 3, 1}), data, 3, u"two"},
      {"long, in halves", words({3, 1, 0, 1, 70000 & 0xFFFF, 5, 3, 1}), data, 2, wide_filler},
      {"behind a long one in halves", words({3, 1, 0, 1, 70000 & 0xFFFF, 5, 3, 1}), data, 3, u"two"},
      {"long of length 0", words({3, 1, 0, 5, 0, 0, 3, 1}), "onetwo", 3, u"two"},
      {"long entry cut", words({3, 1, 0, 5}), "one", 2, u"(unreadable)"},
      {"entry cut", words({3, 1, 3}), "onetwo", 2, u"(unreadable)"},
      {"length past the data", words({3, 1, 4, 1}), "onetwo", 2, u"(unreadable)"},
      {"before a length past the data", words({3, 1, 4, 1}), "onetwo", 1, u"one"},
      {"length of 4 GB", words({3, 1, 0, 5, 0xFFFF, 0xFFFF, 3, 1}), "onetwo", 2, u"(unreadable)"},
      {"longer than a value may be", words({0, 1, 1, 0x40}), std::string((4U << 20) + 1, 'x'), 1,
       std::u16string(4000, u'x')},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(1252, c.entries, c.data, c.number), c.expected) << c.what;
}

TEST(StringPool, ReadsTheCodePagesOfWindows) {
  struct {
    unsigned code_page;
    std::string bytes;
    std::u16string expected;
  } const cases[] = {
      {0, "caf\xE9", u"caf\u00E9"},
      {1252, "\x80\x81\x9F\xE9", u"\u20AC\u0081\u0178\u00E9"},
      {1251, "\xCF\xF0", u"\u041F\u0440"},
      {1255, "\xE0", u"\u05D0"},
      {874, "\xA1", u"\u0E01"},
      {437, "\x81", u"\u00FC"},
      {932, "\x93\xFA\xB6", u"\u65E5\uFF76"},
      {932, "\x93\xFA\x93", u"\u65E5\u30FB"},  // cut in the middle of a character
      {936, "\xC8\xED", u"\u8F6F"},
      {949, "\xC7\xD1", u"\uD55C"},
      {950, "\xA4\xA4", u"\u4E2D"},
      {1361, "\xD0\x65", u"\uD55C"},
      {28605, "\xA4", u"\u20AC"},
      {20866, "\xC1", u"\u0430"},
      {54936, "\x81\x30\x81\x30", u"\u0080"},
      {65001, "\xE6\x97\xA5\xF0\x9F\x98\x80", u"\u65E5\U0001F600"},
      {65001, "a\xFF\xC3", u"a\uFFFD\uFFFD"},
      {1253, "a\xD2z", u"a\uFFFDz"},    // not a character of 1253
      {4711, "caf\xE9", u"caf\u00E9"},  // no code page has this number
      {0x7FFFFFFF, "\x80", u"\u20AC"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(text_of(c.code_page, words({static_cast<unsigned>(c.bytes.size()), 1}), c.bytes, 1), c.expected)
        << "code page " << c.code_page;
  }
}

struct lookup_result {
  property_result result;
  std::u16string text;
};

lookup_result look_up(bool long_references, const std::string& table, std::string_view name) {
  const std::string pool = words({1252, long_references ? 0x8000U : 0U}) + words({4, 1, 3, 1, 5, 1, 4, 1});
  property_table properties(std::make_unique<memory_source>(pool), std::make_unique<memory_source>("NameoneOtherName"),
                            std::make_unique<memory_source>(table));
  lookup_result out{};
  out.result = properties.value(name, out.text);
  return out;
}

TEST(PropertyTable, LooksUpRowsOfEveryForm) {
  const std::string three_bytes("\1\0\0\3\0\0\2\0\0\0\0\0", 12);
  struct {
    const char* what;
    const char* name;
    std::string table;
    std::u16string text;
    property_result result;
    bool long_references;
  } const cases[] = {
      {"first row", "Name", words({1, 3, 2, 0}), u"one", property_result::found, false},
      {"the other number of the same name", "Name", words({3, 4, 1, 2}), u"one", property_result::found, false},
      {"empty value", "Other", words({1, 3, 2, 0}), u"", property_result::found, false},
      {"first of two rows", "Name", words({1, 1, 2, 3}), u"one", property_result::found, false},
      {"no such row", "Name", words({3, 2}), u"", property_result::absent, false},
      {"no such text", "Nam", words({1, 2}), u"", property_result::absent, false},
      {"names differ in case", "name", words({1, 2}), u"", property_result::absent, false},
      {"no rows", "Name", "", u"", property_result::absent, false},
      {"value past the pool", "Name", words({1, 9}), u"", property_result::unreadable, false},
      {"half a row", "Name", words({1, 2, 3}), u"", property_result::unreadable, false},
      {"odd size", "Name", words({1, 2}) + "x", u"", property_result::unreadable, false},
      {"three bytes", "Name", three_bytes, u"one", property_result::found, true},
      {"three bytes, empty value", "Other", three_bytes, u"", property_result::found, true},
  };
  for (const auto& c : cases) {
    const lookup_result got = look_up(c.long_references, c.table, c.name);
    EXPECT_EQ(got.result, c.result) << c.what;
    EXPECT_EQ(got.text, c.text) << c.what;
  }
}

// What comes out of a stream, behind the code.
std::string message_of(const std::string& content) {
  memory_source stream(content);
  QmemPtr<std::byte> bytes;
  std::uint32_t length = 0;
  const qerr_t code = signature_message_read(stream, bytes, length);
  return std::to_string(code) + " " + std::string(reinterpret_cast<const char*>(bytes.get()), length);
}

TEST(SignatureStream, HandsOutOneMessage) {
  const std::string body(300, 'b');
  const std::string two_bytes = "\x30\x82\x01\x2C" + body;
  const std::string open_length("\x30\x80\x02\x01\x01\x00\x00", 7);
  const std::string huge = "\x30\x84\x01\x10" + std::string(2, '\0') + std::string(0x1100000, 'b');
  struct {
    const char* what;
    std::string content;
    std::string expected;
  } const cases[] = {
      {"short form", "\x30\x03xyz", "0 \x30\x03xyz"},
      {"bytes behind the message", "\x30\x03xyzuv", "0 \x30\x03xyz"},
      {"one byte of length", "\x30\x81\x03xyz", "0 \x30\x81\x03xyz"},
      {"two bytes of length", two_bytes + "tail", "0 " + two_bytes},
      {"open length: the whole stream", open_length, "0 " + open_length},
      {"no more than anybody decodes", huge, "0 " + huge.substr(0, MSI_MAX_SIGNATURE)},
      {"empty stream", "", "2 "},
      {"one byte", "\x30", "2 "},
      {"another tag", "\x31\x03xyz", "2 "},
      {"longer than the stream", "\x30\x04xyz", "2 "},
      {"length cut", "\x30\x82\x01", "2 "},
      {"four gibibytes", "\x30\x84\xFF\xFF\xFF\xFFxyz", "2 "},
      {"nine bytes of length", "\x30\x89\x01\x01\x01\x01\x01\x01\x01\x01\x01", "2 "},
  };
  for (const auto& c : cases) EXPECT_TRUE(message_of(c.content) == c.expected) << c.what;
}

}  // namespace
