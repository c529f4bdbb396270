#include "sgn/sgn_name_text.h"

#include <algorithm>
#include <vector>

#include "sgn/sgn_facts.h"
#include "sgn/sgn_texts.h"

namespace {

constexpr sgn_named_oid attribute_names[] = {
    {sgn_oid("2.5.4.3"), "CN"},
    {sgn_oid("2.5.4.10"), "O"},
    {sgn_oid("2.5.4.11"), "OU"},
    {sgn_oid("2.5.4.6"), "C"},
    {sgn_oid("2.5.4.7"), "L"},
    {sgn_oid("2.5.4.8"), "ST"},
    {sgn_oid("2.5.4.9"), "street"},
    {sgn_oid("2.5.4.4"), "SN"},
    {sgn_oid("2.5.4.5"), "serialNumber"},
    {sgn_oid("2.5.4.12"), "title"},
    {sgn_oid("2.5.4.13"), "description"},
    {sgn_oid("2.5.4.15"), "businessCategory"},
    {sgn_oid("2.5.4.17"), "postalCode"},
    {sgn_oid("2.5.4.42"), "GN"},
    {sgn_oid("2.5.4.43"), "initials"},
    {sgn_oid("2.5.4.46"), "dnQualifier"},
    {sgn_oid("2.5.4.97"), "organizationIdentifier"},
    {sgn_oid("1.2.840.113549.1.9.1"), "emailAddress"},
    {sgn_oid("0.9.2342.19200300.100.1.25"), "DC"},
    {sgn_oid("0.9.2342.19200300.100.1.1"), "UID"},
    {sgn_oid("1.3.6.1.4.1.311.60.2.1.1"), "jurisdictionL"},
    {sgn_oid("1.3.6.1.4.1.311.60.2.1.2"), "jurisdictionST"},
    {sgn_oid("1.3.6.1.4.1.311.60.2.1.3"), "jurisdictionC"},
};

// RFC 4514, 2.4; control characters in hexadecimal, too.
void append_escaped(const std::string& value, std::string& out) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  constexpr std::string_view special = ",+\"\\<>;";
  for (std::size_t i = 0; i < value.size(); ++i) {
    const auto one = static_cast<unsigned char>(value[i]);
    const bool at_edge = (i == 0 && (one == ' ' || one == '#')) || (i + 1 == value.size() && one == ' ');
    if (one < ' ' || one == 0x7F) {
      out.append(1, '\\').append(1, digits[one >> 4]).append(1, digits[one & 0xF]);
      continue;
    }
    if (at_edge || special.find(value[i]) != std::string_view::npos) out += '\\';
    out += value[i];
  }
}

void append_attribute(const sgn_attribute& attribute, std::string& out) {
  const std::string_view name = sgn_find_name(attribute_names, attribute.type);
  const auto text = name.empty() ? std::nullopt : sgn_string(attribute.value, SGN_FACTS_MOST_TEXT);
  out.append(name.empty() ? sgn_dotted(attribute.type) : std::string(name)).append("=");
  if (text) {
    append_escaped(*text, out);
  } else {
    const Bytes whole = attribute.value.whole;  // a longer one will not fit, whatever is left of it
    out.append("#").append(sgn_hex(whole.first(std::min(whole.size(), SGN_FACTS_MOST_TEXT))));
  }
}

}  // namespace

std::string sgn_rfc4514(Bytes name) {
  // The last attribute comes first, so all texts are kept until the end, each with the separator that follows it.
  std::vector<std::string> parts;
  std::size_t size = 0;
  bool starts_set = false;
  sgn_name_reader in(name);
  while (const auto attribute = in.next(starts_set)) {
    std::string& part = parts.emplace_back();
    append_attribute(*attribute, part);
    part += starts_set ? ',' : '+';
    size += part.size();
    if (size > SGN_FACTS_MOST_TEXT) return {};
  }
  if (in.is_damaged() || parts.empty()) return {};
  std::string out;
  for (auto part = parts.rbegin(); part != parts.rend(); ++part) out += *part;
  out.pop_back();
  return out;
}

sgn_name_reader::sgn_name_reader(Bytes name) noexcept {
  const auto whole = sgn_elements(name).next(sgn_tag_sequence);
  damaged_ = !whole;
  if (whole) sets_ = sgn_elements(whole->content);
}

std::optional<sgn_attribute> sgn_name_reader::next(bool& starts_set) noexcept {
  starts_set = false;
  while (!damaged_ && attributes_.rest().empty() && !sets_.rest().empty()) {
    const auto set = sets_.next(sgn_tag_set);
    damaged_ = !set;
    if (!set) return std::nullopt;
    attributes_ = sgn_elements(set->content);
    starts_set = true;
  }
  if (damaged_ || attributes_.rest().empty()) return std::nullopt;
  const auto attribute = attributes_.next(sgn_tag_sequence);
  sgn_elements in(attribute ? attribute->content : Bytes());
  const auto type = in.next(sgn_tag_object);
  const auto value = in.next();
  damaged_ = !type || !value;
  return damaged_ ? std::nullopt : std::optional(sgn_attribute{type->content, *value});
}
