#include "sgn/sgn_oneline.h"

#include <openssl/objects.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace {

using octets = std::span<const unsigned char>;

constexpr std::size_t most_text = std::size_t{1} << 20;
// The first of OpenSSL's numbers that came later, those which a program registers included.
constexpr int first_late_type = 958;
constexpr std::size_t most_type_text = 79;
// Decimal digits cost the square of the number's length. No registered type comes near this bound.
constexpr std::size_t most_type_bytes = 512;

// A number without bounds, in groups of 17 decimal digits, the lowest first.
class big_number {
 public:
  void append_septet(unsigned septet) {
    std::uint64_t carry = septet;
    for (std::uint64_t& group : groups_) {
      const std::uint64_t value = group * 128 + carry;
      group = value % base;
      carry = value / base;
    }
    if (carry != 0) groups_.push_back(carry);
  }
  [[nodiscard]] bool is_below(std::uint64_t bound) const noexcept { return groups_.size() == 1 && groups_[0] < bound; }
  void subtract(std::uint64_t amount) noexcept {  // at most what it holds
    for (std::uint64_t& group : groups_) {
      const bool borrows = group < amount;
      group += (borrows ? base : 0) - amount;
      if (!borrows) break;
      amount = 1;
    }
    while (groups_.size() > 1 && groups_.back() == 0) groups_.pop_back();
  }
  [[nodiscard]] std::string text() const {
    std::string out = std::to_string(groups_.back());
    for (auto group = groups_.rbegin() + 1; group != groups_.rend(); ++group) {
      const std::string digits = std::to_string(*group);
      out.append(base_digits - digits.size(), '0').append(digits);
    }
    return out;
  }

 private:
  static constexpr std::size_t base_digits = 17;
  static constexpr std::uint64_t base = 100'000'000'000'000'000;
  std::vector<std::uint64_t> groups_{0};
};

// X.690, 8.19: seven bits an octet; the first number holds the first two arcs.
std::string dotted_number(octets encoding) {
  std::string out;
  big_number arc;
  for (const unsigned char one : encoding) {
    arc.append_septet(one & 0x7FU);
    if ((one & 0x80) != 0) continue;
    if (out.empty()) {
      const unsigned first = arc.is_below(40) ? 0 : arc.is_below(80) ? 1 : 2;
      arc.subtract(std::uint64_t{40} * first);
      out = std::to_string(first);
    }
    out.append(".").append(arc.text());
    if (out.size() >= most_type_text) break;
    arc = {};
  }
  return out.substr(0, most_type_text);
}

qerr_t append_type(const ASN1_OBJECT* type, std::string& out) {
  const int number = OBJ_obj2nid(type);
  const char* const name = number != NID_undef && number < first_late_type ? OBJ_nid2sn(number) : nullptr;
  if (name != nullptr) {
    out += name;
    return QERR_OK;
  }
  const octets encoding(OBJ_get0_data(type), OBJ_length(type));
  if (encoding.size() > most_type_bytes) return QERR_INVALID;
  out += dotted_number(encoding);
  return QERR_OK;
}

bool holds_only_fourth_bytes(int type, octets value) noexcept {
  if (type != V_ASN1_GENERALSTRING || value.size() % 4 != 0) return false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (i % 4 != 3 && value[i] != 0) return false;
  }
  return true;
}

void append_value(int type, octets value, std::string& out) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  const std::size_t step = holds_only_fourth_bytes(type, value) ? 4 : 1;
  for (std::size_t i = step - 1; i < value.size(); i += step) {
    const unsigned char one = value[i];
    if (one >= ' ' && one <= '~') {
      out += static_cast<char>(one);
    } else {
      out.append("\\x").append(1, digits[one >> 4]).append(1, digits[one & 0xF]);
    }
  }
}

}  // namespace

qerr_t sgn_oneline(const X509_NAME* name, std::string& out) {
  out.clear();
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const X509_NAME_ENTRY* const entry = X509_NAME_get_entry(name, i);
    const ASN1_STRING* const string = X509_NAME_ENTRY_get_data(entry);
    const octets value(ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string)));
    if (value.size() > most_text) return QERR_INVALID;
    out += '/';
    if (const qerr_t code = append_type(X509_NAME_ENTRY_get_object(entry), out); code != QERR_OK) return code;
    out += '=';
    append_value(ASN1_STRING_type(string), value, out);
    if (out.size() > most_text) return QERR_INVALID;
  }
  return QERR_OK;
}
