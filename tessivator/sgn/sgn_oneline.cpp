#include "sgn/sgn_oneline.h"

#include <openssl/objects.h>

#include <array>
#include <span>
#include <string_view>

namespace {

using octets = std::span<const unsigned char>;

constexpr std::size_t most_text = std::size_t{1} << 20;
// The first OpenSSL number that is newer, or registered by a program.
constexpr int first_late_type = 958;
constexpr std::size_t most_type_text = 79;
// Releases of OpenSSL differ for types of more than 586 octets. No registered type comes near this.
constexpr std::size_t most_type_bytes = 512;

qerr_t append_type(const ASN1_OBJECT* type, std::string& out) {
  const int number = OBJ_obj2nid(type);
  const char* const name = number != NID_undef && number < first_late_type ? OBJ_nid2sn(number) : nullptr;
  if (name != nullptr) {
    out += name;
    return QERR_OK;
  }
  if (OBJ_length(type) > most_type_bytes) return QERR_INVALID;
  std::array<char, most_type_text + 1> dotted{};
  if (OBJ_obj2txt(dotted.data(), dotted.size(), type, 1) < 0) return QERR_INVALID;
  out += dotted.data();
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
