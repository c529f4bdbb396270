// Code pages through iconv, under the names that glibc has for them.
#include "msi/code_page.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "common/qlib/qstr.h"

namespace {

constexpr std::uint32_t utf_8 = 65001;

// Windows-1252, 0x80 to 0x9F; the rest is Latin-1.
constexpr std::array<char16_t, 32> cp1252{0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                          0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                          0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                          0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::u16string from_1252(Bytes bytes) {
  std::u16string text;
  text.reserve(bytes.size());
  for (const std::byte b : bytes) {
    const auto unit = std::to_integer<char16_t>(b);
    text.push_back(unit >= 0x80 && unit < 0xA0 ? cp1252[unit - 0x80U] : unit);
  }
  return text;
}

// iconv's name of a code page where it is not simply CP and the number.
struct charset {
  std::uint32_t code_page;
  const char* name;
};
constexpr std::array charsets{
    charset{932, "CP932"},          charset{936, "GBK"},      charset{949, "CP949"},
    charset{950, "BIG5"},           charset{1361, "JOHAB"},   charset{10000, "MACINTOSH"},
    charset{10007, "MAC-CYRILLIC"}, charset{10017, "MAC-UK"}, charset{10029, "MAC-CENTRALEUROPE"},
    charset{10079, "MACINTOSH"},    charset{20127, "ASCII"},  charset{20866, "KOI8-R"},
    charset{20932, "EUC-JP"},       charset{21866, "KOI8-U"}, charset{28591, "ISO-8859-1"},
    charset{51932, "EUC-JP"},       charset{51936, "GB2312"}, charset{51949, "EUC-KR"},
    charset{54936, "GB18030"},      charset{65000, "UTF-7"}};

// The letters in which 10079 (Icelandic) differs from MACINTOSH; glibc's MAC-IS has other characters for four of them.
struct letter {
  std::uint8_t byte;
  char16_t unit;
};
constexpr std::array icelandic{letter{0xA0, 0x00DD}, letter{0xDC, 0x00D0}, letter{0xDD, 0x00F0},
                               letter{0xDE, 0x00DE}, letter{0xDF, 0x00FE}, letter{0xE0, 0x00FD}};

void set_icelandic(Bytes bytes, std::u16string& text) noexcept {
  for (std::size_t i = 0; i < bytes.size() && i < text.size(); ++i) {
    const auto at = std::ranges::find(icelandic, std::to_integer<std::uint8_t>(bytes[i]), &letter::byte);
    if (at != icelandic.end()) text[i] = at->unit;
  }
}

// Two bytes that a code page leaves to its users, and the private-use character that Windows has for the first of them.
// The others follow in the order of the bytes.
struct user_area {
  std::uint32_t code_page;
  std::array<std::uint8_t, 2> leads;   // first and last
  std::array<std::uint8_t, 4> trails;  // first and last of a range and of the one that follows it
  char16_t base;
};
constexpr std::array user_areas{user_area{936, {0xA1, 0xA7}, {0x40, 0x7E, 0x80, 0xA0}, 0xE4C6},
                                user_area{936, {0xAA, 0xAF}, {0xA1, 0xA1, 0xA2, 0xFE}, 0xE000},
                                user_area{936, {0xF8, 0xFE}, {0xA1, 0xA1, 0xA2, 0xFE}, 0xE234},
                                user_area{949, {0xC9, 0xC9}, {0xA1, 0xA1, 0xA2, 0xFE}, 0xE000},
                                user_area{949, {0xFE, 0xFE}, {0xA1, 0xA1, 0xA2, 0xFE}, 0xE05E},
                                user_area{950, {0x81, 0x8D}, {0x40, 0x7E, 0xA1, 0xFE}, 0xEEB8},
                                user_area{950, {0x8E, 0xA0}, {0x40, 0x7E, 0xA1, 0xFE}, 0xE311},
                                user_area{950, {0xC6, 0xC6}, {0xA1, 0xA1, 0xA2, 0xFE}, 0xF6B1},
                                user_area{950, {0xC7, 0xC8}, {0x40, 0x7E, 0xA1, 0xFE}, 0xF70F},
                                user_area{950, {0xFA, 0xFE}, {0x40, 0x7E, 0xA1, 0xFE}, 0xE000}};

// The private-use character for the two bytes; 0 when they lie in no user-defined area of the code page.
char16_t user_defined(std::uint32_t code_page, std::uint8_t lead, std::uint8_t trail) noexcept {
  for (const user_area& area : user_areas) {
    if (area.code_page != code_page || lead < area.leads[0] || lead > area.leads[1]) continue;
    const auto [first, last, next, end] = area.trails;
    const int row = (last - first + 1) + (end - next + 1);
    const int before = (lead - area.leads[0]) * row;
    if (trail >= first && trail <= last) return static_cast<char16_t>(area.base + before + (trail - first));
    if (trail >= next && trail <= end) {
      return static_cast<char16_t>(area.base + before + (last - first + 1) + (trail - next));
    }
  }
  return 0;
}

class converter {
 public:
  explicit converter(std::uint32_t code_page) noexcept
      : handle_(open(code_page)), code_page_(code_page), undefined_(code_page == 932 ? u'\x30FB' : u'\xFFFD') {}
  converter(const converter&) = delete;
  converter& operator=(const converter&) = delete;
  ~converter() {
    if (ok()) iconv_close(handle_);
  }
  [[nodiscard]] bool ok() const noexcept { return handle_ != none(); }
  [[nodiscard]] std::u16string decode(Bytes bytes);

 private:
  // NOLINTNEXTLINE(performance-no-int-to-ptr): POSIX defines iconv's failure so
  static iconv_t none() noexcept { return reinterpret_cast<iconv_t>(-1); }
  static iconv_t open(std::uint32_t code_page) noexcept;
  iconv_t handle_;
  std::uint32_t code_page_;
  char16_t undefined_;
};

iconv_t converter::open(std::uint32_t code_page) noexcept {
  if (code_page > 28591 && code_page <= 28606) {
    std::array<char, 16> name{};
    (void)std::snprintf(name.data(), name.size(), "ISO-8859-%u", static_cast<unsigned>(code_page - 28590));
    return iconv_open("UTF-16LE", name.data());
  }
  for (const charset& c : charsets) {
    if (c.code_page == code_page) return iconv_open("UTF-16LE", c.name);
  }
  if (code_page >= 10000) return none();
  std::array<char, 16> name{};
  (void)std::snprintf(name.data(), name.size(), "CP%03u", static_cast<unsigned>(code_page));
  return iconv_open("UTF-16LE", name.data());
}

std::uint8_t octet(char c) noexcept { return static_cast<std::uint8_t>(c); }

void append_units(std::u16string& text, const char* begin, const char* end) {
  for (; end - begin >= 2; begin += 2) {
    text.push_back(static_cast<char16_t>(octet(begin[0]) | octet(begin[1]) << 8));
  }
}

// Every turn either takes input or ends: undefined bytes are taken here, a full output buffer is emptied.
std::u16string converter::decode(Bytes bytes) {
  std::string source(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::u16string text;
  text.reserve(source.size());
  char* in = source.data();
  std::size_t in_left = source.size();
  bool flushed = false;
  while (in_left > 0 || !flushed) {
    std::array<char, 1024> piece{};
    char* out = piece.data();
    std::size_t out_left = piece.size();
    flushed = in_left == 0;
    const std::size_t result =
        flushed ? iconv(handle_, nullptr, nullptr, &out, &out_left) : iconv(handle_, &in, &in_left, &out, &out_left);
    const int reason = errno;
    append_units(text, piece.data(), out);
    if (flushed || result != static_cast<std::size_t>(-1) || reason == E2BIG) continue;
    const char16_t user = in_left < 2 ? u'\0' : user_defined(code_page_, octet(in[0]), octet(in[1]));
    text.push_back(user != 0 ? user : undefined_);
    if (reason != EILSEQ) break;  // cut in the middle of a character
    const std::size_t taken = user != 0 ? 2 : 1;
    in += taken;
    in_left -= taken;
  }
  return text;
}

}  // namespace

bool code_page_is_known(std::uint32_t code_page) noexcept {
  return code_page == 0 || code_page == 1252 || code_page == utf_8 || converter(code_page).ok();
}

std::u16string code_page_decode(std::uint32_t code_page, Bytes bytes) {
  if (bytes.empty()) return {};
  if (code_page == utf_8)
    return qstr_to_wide(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  if (code_page == 0 || code_page == 1252) return from_1252(bytes);
  converter convert(code_page);
  if (!convert.ok()) return from_1252(bytes);
  std::u16string text = convert.decode(bytes);
  if (code_page == 10079) set_icelandic(bytes, text);  // a unit a byte
  return text;
}
