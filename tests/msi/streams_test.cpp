// The streams of a package, read from memory.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "common/qlib/qerr.h"
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
  for (const unsigned value : values) bytes += {static_cast<char>(value), static_cast<char>(value >> 8)};
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

// What the fixtures do not have.
TEST(StringPool, FindsEveryFormOfEntry) {
  const std::string data = "one" + std::string(70000, 'x') + "two";
  const std::u16string longest(4000, u'x');
  struct {
    const char* what;
    std::string entries;
    std::string data;
    std::uint32_t number;
    std::u16string expected;
  } const cases[] = {
      {"free numbers count", words({3, 1, 0, 0, 3, 1}), "onetwo", 3, u"two"},
      {"a free number has no text", words({3, 1, 0, 0, 3, 1}), "onetwo", 2, u"(unreadable)"},
      {"behind a long one", words({3, 1, 0, 5, 70000 & 0xFFFF, 1, 3, 1}), data, 3, u"two"},
      {"long, in halves", words({3, 1, 0, 1, 70000 & 0xFFFF, 5, 3, 1}), data, 2, longest},
      {"behind a long one in halves", words({3, 1, 0, 1, 70000 & 0xFFFF, 5, 3, 1}), data, 3, u"two"},
      {"long of length 0", words({3, 1, 0, 5, 0, 0, 3, 1}), "onetwo", 3, u"two"},
      {"long entry cut", words({3, 1, 0, 5}), "one", 2, u"(unreadable)"},
      {"before a length past the data", words({3, 1, 4, 1}), "onetwo", 1, u"one"},
      {"4 MiB and a byte", words({0, 1, 1, 0x40}), std::string((4U << 20) + 1, 'x'), 1, longest},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(1252, c.entries, c.data, c.number), c.expected) << c.what;
}

TEST(StringPool, ReadsTheCodePagesOfWindows) {
  struct {
    unsigned code_page;
    std::string bytes;
    std::u16string expected;
  } const cases[] = {
      {1252, "\x80\x81\x9F\xE9", u"\u20AC\u0081\u0178\u00E9"},
      {1255, "\xE0", u"\u05D0"},
      {874, "\xA1", u"\u0E01"},
      {437, "\x81", u"\u00FC"},
      {950, "\xA4\xA4", u"\u4E2D"},
      {1361, "\xD0\x65", u"\uD55C"},
      {28605, "\xA4", u"\u20AC"},
      {20866, "\xC1", u"\u0430"},
      {54936, "\x81\x30\x81\x30", u"\u0080"},
      {1253, "a\xD2z", u"a\uFFFDz"},  // not a character of 1253
      {0x7FFFFFFF, "\x80", u"\u20AC"},
  };
  for (const auto& c : cases) {
    const std::string entry = words({static_cast<unsigned>(c.bytes.size()), 1});
    EXPECT_EQ(text_of(c.code_page, entry, c.bytes, 1), c.expected) << "code page " << c.code_page;
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
  const std::string two_bytes = "\x30\x82\x01\x2C" + std::string(300, 'b');
  const std::string open_length("\x30\x80\x02\x01\x01\x00\x00", 7);
  const std::pair<std::string, std::string> cases[] = {
      {"\x30\x03xyzuv", "0 \x30\x03xyz"},
      {"\x30\x81\x03xyz", "0 \x30\x81\x03xyz"},
      {two_bytes + "tail", "0 " + two_bytes},
      {open_length, "0 " + open_length},
      {"\x30", "2 "},
      {"\x31\x03xyz", "2 "},
      {"\x30\x04xyz", "2 "},
      {"\x30\x82\x01", "2 "},
      {"\x30\x84\xFF\xFF\xFF\xFFxyz", "2 "},
      {"\x30\x89\x01\x01\x01\x01\x01\x01\x01\x01\x01", "2 "},
  };
  for (const auto& [content, expected] : cases) EXPECT_EQ(message_of(content), expected);
}

}  // namespace
