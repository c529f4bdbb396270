#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "common/qlib/qerr.h"
#include "compound_builder.h"
#include "memory_source.h"
#include "msi/signature_stream.h"

namespace {

// The signature that comes out of a package with the stream `content`, behind the code.
std::string signature_of(const std::string& content) {
  compound_builder builder;
  builder.add(u"Other", "x")
      .add(
          u"\x0005"
          u"DigitalSignature",
          content);
  QmemPtr<std::byte> bytes;
  std::uint32_t length = 0;
  const auto package = compound_file::open(std::make_shared<memory_source>(builder.build()));
  const qerr_t code = package ? signature_stream_read(*package, bytes, length) : QERR_INVALID;
  if (code != QERR_OK) return std::to_string(code);
  return "0 " + std::string(reinterpret_cast<const char*>(bytes.get()), length);
}

TEST(SignatureStream, HandsOutOneMessage) {
  const std::string body(300, 'b');
  const std::string large(70000, 'b');
  const std::string long_form("\x30\x82\x01\x2C", 4);  // 300
  const std::string open_length("\x30\x80\x02\x01\x01\x00\x00", 7);
  struct {
    const char* what;
    std::string content;
    std::string expected;
  } const cases[] = {
      {"short form",
       "\x30\x03"
       "abc",
       "0 \x30\x03"
       "abc"},
      {"bytes behind the message",
       "\x30\x03"
       "abcde",
       "0 \x30\x03"
       "abc"},
      {"one byte of length",
       "\x30\x81\x03"
       "abc",
       "0 \x30\x81\x03"
       "abc"},
      {"two bytes of length", long_form + body + "tail", "0 " + long_form + body},
      {"not in the mini stream", std::string("\x30\x83\x01\x11\x70", 5) + large,
       "0 " + std::string("\x30\x83\x01\x11\x70", 5) + large},
      {"open length: the whole stream", open_length, "0 " + open_length},
      {"empty stream", "", "2"},
      {"one byte", "\x30", "2"},
      {"another tag",
       "\x31\x03"
       "abc",
       "2"},
      {"longer than the stream",
       "\x30\x04"
       "abc",
       "2"},
      {"length cut", "\x30\x82\x01", "2"},
      {"four gibibytes",
       "\x30\x84\xFF\xFF\xFF\xFF"
       "abc",
       "2"},
      {"nine bytes of length", "\x30\x89\x01\x01\x01\x01\x01\x01\x01\x01\x01", "2"},
  };
  for (const auto& c : cases) EXPECT_EQ(signature_of(c.content), c.expected) << c.what;
}

}  // namespace
