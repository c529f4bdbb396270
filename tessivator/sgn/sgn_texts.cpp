#include "sgn/sgn_texts.h"

#include <openssl/objects.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <utility>
#include <vector>

#include "common/qlib/qcksum.h"
#include "common/qlib/qutf8.h"
#include "sgn/sgn_facts.h"
#include "sgn/sgn_ossl.h"

namespace {

constexpr sgn_named_oid digest_names[] = {
    {sgn_oid("2.16.840.1.101.3.4.2.1"), "sha256"}, {sgn_oid("1.3.14.3.2.26"), "sha1"},
    {sgn_oid("2.16.840.1.101.3.4.2.2"), "sha384"}, {sgn_oid("2.16.840.1.101.3.4.2.3"), "sha512"},
    {sgn_oid("2.16.840.1.101.3.4.2.4"), "sha224"}, {sgn_oid("1.2.840.113549.2.5"), "md5"},
    {sgn_oid("1.2.840.113549.2.2"), "md2"},
};

// A signer may name its key's algorithm alone, or together with the digest's.
constexpr sgn_named_oid key_names[] = {
    {sgn_oid("1.2.840.113549.1.1.1"), "rsa"},   {sgn_oid("1.2.840.113549.1.1.11"), "rsa"},
    {sgn_oid("1.2.840.113549.1.1.5"), "rsa"},   {sgn_oid("1.2.840.113549.1.1.12"), "rsa"},
    {sgn_oid("1.2.840.113549.1.1.13"), "rsa"},  {sgn_oid("1.2.840.113549.1.1.4"), "rsa"},
    {sgn_oid("1.3.14.3.2.29"), "rsa"},          {sgn_oid("1.2.840.113549.1.1.10"), "rsa-pss"},
    {sgn_oid("1.2.840.10045.2.1"), "ec"},       {sgn_oid("1.2.840.10045.4.1"), "ec"},
    {sgn_oid("1.2.840.10045.4.3.1"), "ec"},     {sgn_oid("1.2.840.10045.4.3.2"), "ec"},
    {sgn_oid("1.2.840.10045.4.3.3"), "ec"},     {sgn_oid("1.2.840.10045.4.3.4"), "ec"},
    {sgn_oid("1.2.840.10040.4.1"), "dsa"},      {sgn_oid("1.2.840.10040.4.3"), "dsa"},
    {sgn_oid("2.16.840.1.101.3.4.3.2"), "dsa"}, {sgn_oid("1.3.101.112"), "ed25519"},
    {sgn_oid("1.3.101.113"), "ed448"},
};

constexpr sgn_named_oid signature_names[] = {
    {sgn_oid("1.2.840.113549.1.1.11"), "sha256WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.5"), "sha1WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.12"), "sha384WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.13"), "sha512WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.4"), "md5WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.2"), "md2WithRSAEncryption"},
    {sgn_oid("1.2.840.113549.1.1.10"), "rsassaPss"},
    {sgn_oid("1.3.14.3.2.29"), "sha1WithRSA"},
    {sgn_oid("1.2.840.10045.4.1"), "ecdsa-with-SHA1"},
    {sgn_oid("1.2.840.10045.4.3.2"), "ecdsa-with-SHA256"},
    {sgn_oid("1.2.840.10045.4.3.3"), "ecdsa-with-SHA384"},
    {sgn_oid("1.2.840.10045.4.3.4"), "ecdsa-with-SHA512"},
    {sgn_oid("1.2.840.10040.4.3"), "dsa-with-SHA1"},
    {sgn_oid("2.16.840.1.101.3.4.3.2"), "dsa-with-SHA256"},
    {sgn_oid("1.3.101.112"), "ed25519"},
    {sgn_oid("1.3.101.113"), "ed448"},
};

std::string name_or_dotted(std::span<const sgn_named_oid> names, Bytes object) {
  const std::string_view name = sgn_find_name(names, object);
  return name.empty() ? sgn_dotted(object) : std::string(name);
}

unsigned octet(Bytes bytes, std::size_t at) noexcept { return std::to_integer<unsigned>(bytes[at]); }

// Digits of a time, taken from its start.
class time_digits {
 public:
  explicit time_digits(std::string_view text) noexcept : rest_(text) {}
  // A number of `count` digits; false, and nothing taken, where there are fewer.
  bool take(std::size_t count, int& out) noexcept {
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (i >= rest_.size() || rest_[i] < '0' || rest_[i] > '9') return false;
      value = value * 10 + (rest_[i] - '0');
    }
    rest_.remove_prefix(count);
    out = value;
    return true;
  }
  // The digits behind a point or a comma, without zeros at their end.
  std::string_view fraction() noexcept {
    if (rest_.empty() || (rest_.front() != '.' && rest_.front() != ',')) return {};
    rest_.remove_prefix(1);
    std::string_view digits = rest_.substr(0, rest_.find_first_not_of("0123456789"));
    rest_.remove_prefix(digits.size());
    return digits.substr(0, digits.find_last_not_of('0') + 1);
  }
  // Minutes east of UTC; false where the time does not end with a zone.
  bool zone(int& minutes) noexcept {
    if (rest_ == "Z") return true;
    if (rest_.size() != 5 || (rest_.front() != '+' && rest_.front() != '-')) return false;
    const int sign = rest_.front() == '-' ? -1 : 1;
    int hour = 0;
    int minute = 0;
    rest_.remove_prefix(1);
    if (!take(2, hour) || !take(2, minute) || hour > 23 || minute > 59) return false;
    minutes = sign * (hour * 60 + minute);
    return true;
  }

 private:
  std::string_view rest_;
};

void append_number(std::string& out, int value, std::size_t digits, std::string_view behind) {
  const std::string text = std::to_string(value);
  out.append(digits - std::min(digits, text.size()), '0').append(text).append(behind);
}

// Strings of one byte a character, of two, of four, and UTF-8.
enum class string_form : std::uint8_t { none, utf8, latin, wide16, wide32 };

string_form form_of(const sgn_tag& tag) noexcept {
  if (tag.tag_class != 0) return string_form::none;
  switch (tag.number) {
    case 12:  // UTF8String
      return string_form::utf8;
    case 18:  // NumericString, PrintableString, TeletexString (as everybody writes it), IA5String, VisibleString
    case 19:
    case 20:
    case 22:
    case 26:
      return string_form::latin;
    case 28:
      return string_form::wide32;
    case 30:
      return string_form::wide16;
    default:
      return string_form::none;
  }
}

// Characters of `Size` bytes each, the highest first. False when one of them is no character.
template <std::size_t Size>
bool append_wide(Bytes content, std::string& out) {
  if (content.size() % Size != 0) return false;
  for (; !content.empty(); content = content.subspan(Size)) {
    char32_t scalar = 0;
    for (std::size_t i = 0; i < Size; ++i) scalar = scalar << 8 | octet(content, i);
    if (Size == 2 && scalar >= 0xD800 && scalar < 0xDC00 && content.size() >= 4) {
      const char32_t low = octet(content, 2) << 8 | octet(content, 3);
      if (low < 0xDC00 || low > 0xDFFF) return false;
      scalar = 0x10000 + ((scalar - 0xD800) << 10) + (low - 0xDC00);
      content = content.subspan(2);
    }
    if (scalar > 0x10FFFF || (scalar >= 0xD800 && scalar < 0xE000)) return false;
    qutf8_append(out, scalar);
  }
  return true;
}

// What nearly all texts are, and the same in all forms but the wide ones.
bool is_ascii(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char one) { return (one & 0x80) == 0; });
}

bool is_utf8(std::string_view text) noexcept {
  if (is_ascii(text)) return true;
  while (!text.empty()) {
    const qutf8_step step = qutf8_next(text);
    if (!step.valid) return false;
    text.remove_prefix(step.length);
  }
  return true;
}

}  // namespace

std::string sgn_hex(Bytes bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string out(bytes.size() * 2, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out[2 * i] = digits[octet(bytes, i) >> 4];
    out[2 * i + 1] = digits[octet(bytes, i) & 0xF];
  }
  return out;
}

std::string sgn_sha256_hex(Bytes bytes) {
  std::array<std::uint8_t, QCKSUM_SHA512_BIN_LEN> digest{};
  if (qcksum_buf_sha256(bytes.data(), bytes.size(), digest.data()) != QERR_OK) throw std::bad_alloc();
  return sgn_hex(std::as_bytes(std::span(digest).first(QCKSUM_SHA256_BIN_LEN)));
}

std::string sgn_dotted(Bytes content) {
  constexpr std::size_t most_octets = 64;
  if (content.empty() || content.size() > most_octets) return {};
  std::array<unsigned char, most_octets + 2> element{0x06, static_cast<unsigned char>(content.size())};
  std::copy_n(reinterpret_cast<const unsigned char*>(content.data()), content.size(), element.begin() + 2);
  const unsigned char* data = element.data();
  const sgn_error_scope errors;
  const std::unique_ptr<ASN1_OBJECT, FreeWith<ASN1_OBJECT_free>> object(
      d2i_ASN1_OBJECT(nullptr, &data, static_cast<long>(content.size() + 2)));
  std::array<char, 4 * most_octets> text{};
  if (!object || OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object.get(), 1) <= 0) return {};
  return text.data();
}

std::string sgn_digest_name(Bytes object) { return name_or_dotted(digest_names, object); }

std::string sgn_key_name(Bytes object) { return name_or_dotted(key_names, object); }

std::string sgn_signature_name(Bytes object) { return name_or_dotted(signature_names, object); }

std::string sgn_integer_hex(Bytes content) {
  constexpr std::size_t most_octets = 512;
  if (content.empty() || content.size() > most_octets) return {};
  const bool negative = (octet(content, 0) & 0x80) != 0;
  std::vector<std::byte> magnitude(content.begin(), content.end());
  if (negative) {
    for (std::byte& one : magnitude) one = ~one;
    for (std::size_t i = magnitude.size(); i-- > 0;) {
      magnitude[i] = static_cast<std::byte>(std::to_integer<unsigned>(magnitude[i]) + 1);
      if (magnitude[i] != std::byte{0}) break;
    }
  }
  const auto first =
      std::find_if(magnitude.begin(), magnitude.end() - 1, [](std::byte b) { return b != std::byte{0}; });
  return (negative ? "-" : "") + sgn_hex(Bytes(magnitude).subspan(static_cast<std::size_t>(first - magnitude.begin())));
}

std::string sgn_time(const sgn_element& time) {
  constexpr std::size_t most_octets = 64;
  const bool is_utc = time.tag == sgn_tag_utc_time;
  if ((!is_utc && time.tag != sgn_tag_generalized_time) || time.constructed || time.content.size() > most_octets)
    return {};
  time_digits in(sgn_text(time.content));
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int east = 0;
  if (!in.take(is_utc ? 2 : 4, year) || !in.take(2, month) || !in.take(2, day) || !in.take(2, hour)) return {};
  if (in.take(2, minute)) (void)in.take(2, second);
  const std::string_view fraction = is_utc ? std::string_view() : in.fraction();
  if (!in.zone(east)) return {};
  if (is_utc) year += year < 50 ? 2000 : 1900;  // RFC 5280, 4.1.2.5.1
  const std::chrono::year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return {};
  const auto minutes = std::chrono::sys_days(date) + std::chrono::minutes(hour * 60 + minute - east);
  const auto days = std::chrono::floor<std::chrono::days>(minutes);
  const std::chrono::year_month_day utc(days);
  if (int(utc.year()) < 0 || int(utc.year()) > 9999) return {};
  const auto of_day = static_cast<int>((minutes - days) / std::chrono::minutes(1));
  std::string out;
  append_number(out, int(utc.year()), 4, "-");
  append_number(out, static_cast<int>(unsigned(utc.month())), 2, "-");
  append_number(out, static_cast<int>(unsigned(utc.day())), 2, "T");
  append_number(out, of_day / 60, 2, ":");
  append_number(out, of_day % 60, 2, ":");
  append_number(out, std::min(second, 59), 2, "");
  if (!fraction.empty()) out.append(".").append(fraction);
  return out += 'Z';
}

std::optional<std::string> sgn_string(const sgn_element& string, std::size_t most) {
  std::string pieces;
  const Bytes content = sgn_octets(string, pieces);
  std::string out;
  if (content.size() > 4 * most) return std::nullopt;
  switch (form_of(string.tag)) {
    case string_form::utf8:
      out = sgn_text(content);
      if (!is_utf8(out)) return std::nullopt;
      break;
    case string_form::latin:
      if (is_ascii(sgn_text(content))) {
        out = sgn_text(content);
      } else {
        for (const std::byte one : content) qutf8_append(out, std::to_integer<char32_t>(one));
      }
      break;
    case string_form::wide16:
      if (!append_wide<2>(content, out)) return std::nullopt;
      break;
    case string_form::wide32:
      if (!append_wide<4>(content, out)) return std::nullopt;
      break;
    case string_form::none:
      return std::nullopt;
  }
  return out.size() > most ? std::nullopt : std::optional(std::move(out));
}
