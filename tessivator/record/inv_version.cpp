// A version resource is a tree of blocks; every block begins on a 4-byte boundary of the resource.
//
//   offset  field
//   0       u16 wLength: bytes of the block with its children
//   2       u16 wValueLength: bytes (root) or characters (string) of the value
//   4       u16 wType
//   6       szKey: UTF-16 text with its terminator, then padding to 4, the value, padding to 4, the children
//
//   VS_VERSION_INFO > StringFileInfo > table, key "<language><code page>" in hexadecimal > string, key and value
//
// The declared length of a block only gives the place of the next one; every access is checked against the resource.
// All loops end because the minimum length of a block moves the offset: at most size / 8 strings are read.

#include "record/inv_version.h"

#include <algorithm>
#include <string_view>

#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qstr.h"

static constexpr std::uint32_t module_id = QLOG_INV;
#undef QLOG_SOURCE
#define QLOG_SOURCE "inv_cfci.cpp"

namespace {

constexpr std::size_t minimum_resource = 46;
constexpr std::size_t cut_resource = 8000;  // what the resource walk leaves of a longer resource
constexpr std::uint64_t key_offset = 6;
constexpr std::uint64_t child_minimum = 44;
constexpr std::uint64_t table_minimum = 30;
constexpr std::uint64_t string_minimum = 8;
constexpr std::uint64_t first_table = 36;   // behind the key "StringFileInfo"
constexpr std::uint64_t first_string = 24;  // behind a key of eight digits

constexpr std::u16string_view root_key = u"VS_VERSION_INFO";
constexpr std::u16string_view strings_key = u"StringFileInfo";
constexpr std::u16string_view variables_key = u"VarFileInfo";

struct version_key {
  std::u16string_view name;
  qchar* inv_cfci_t::*field;
};
constexpr version_key version_keys[] = {
    {u"CompanyName", &inv_cfci_t::CompanyName},           {u"FileVersion", &inv_cfci_t::FileVersion},
    {u"ProductName", &inv_cfci_t::ProductName},           {u"ProductVersion", &inv_cfci_t::ProductVersion},
    {u"OriginalFilename", &inv_cfci_t::OriginalFilename}, {u"FileDescription", &inv_cfci_t::FileDescription},
    {u"InternalName", &inv_cfci_t::InternalName},
};

// Offsets stay far below 2^32 (a resource plus 16-bit lengths), so these sums cannot wrap.
constexpr std::uint64_t round_up(std::uint64_t value) { return (value + 3) & ~std::uint64_t{3}; }
constexpr std::uint64_t round_down(std::uint64_t value) { return value & ~std::uint64_t{3}; }

// A 16-bit field or unit; 0 outside the resource, which no length check and no key accepts.
std::uint16_t unit_at(Bytes resource, std::uint64_t offset) noexcept {
  return qbytes_le<std::uint16_t>(resource, offset).value_or(0);
}

// Whether the text at `offset` is exactly `key` with its terminator.
bool key_is(Bytes resource, std::uint64_t offset, std::u16string_view key) noexcept {
  const auto text = qbytes_slice(resource, offset, 2 * (key.size() + 1));
  if (!text) return false;
  ByteReader reader(*text);
  std::uint16_t unit = 0;
  for (const char16_t wanted : key) {
    if (!reader.le(unit) || unit != wanted) return false;
  }
  return reader.le(unit) && unit == 0;
}

// The declared length of the block at `offset`, or 0 when it is below `minimum` or exceeds the resource.
std::uint64_t block_length(Bytes resource, std::uint64_t offset, std::uint64_t minimum) noexcept {
  if (offset > resource.size()) return 0;
  const std::uint64_t length = unit_at(resource, offset);
  return length < minimum || length > resource.size() - offset ? 0 : length;
}

bool is_space(qchar unit) noexcept { return unit == u' ' || (unit >= u'\t' && unit <= u'\r'); }

// English of any country, or no language: by digits three and four of the key of the table.
bool is_readable_language(Bytes resource, std::uint64_t table) noexcept {
  const std::uint16_t third = unit_at(resource, table + key_offset + 4);
  const std::uint16_t fourth = unit_at(resource, table + key_offset + 6);
  return third == u'0' && (fourth == u'9' || fourth == u'0');
}

// A new text of the units of `value` before the first zero; null when memory runs out.
qchar* copy_value(Bytes value) noexcept {
  ByteReader counter(value);
  std::size_t length = 0;
  for (std::uint16_t unit = 0; counter.le(unit) && unit != 0;) ++length;
  auto* const text = static_cast<qchar*>(qmem_alloc((length + 1) * sizeof(qchar)));
  if (text == nullptr) return nullptr;
  ByteReader reader(value);
  for (std::size_t i = 0; i < length; ++i) {
    std::uint16_t unit = 0;
    (void)reader.le(unit);  // counted above
    text[i] = static_cast<qchar>(unit);
  }
  text[length] = 0;
  utl_chop_space_from_end(text);
  return text;
}

qerr_t read_string(Bytes resource, std::uint64_t offset, inv_cfci_t& record) noexcept {
  const std::uint64_t declared = std::uint64_t{unit_at(resource, offset + 2)} * 2;
  if (declared == 0) return QERR_OK;
  const auto* const key = std::find_if(std::begin(version_keys), std::end(version_keys), [&](const version_key& known) {
    return key_is(resource, offset + key_offset, known.name);
  });
  if (key == std::end(version_keys) || record.*key->field != nullptr) return QERR_OK;
  const std::uint64_t value = offset + round_down(2 * key->name.size() + 11);
  if (value > resource.size()) return QERR_OK;
  const std::uint64_t there = resource.size() - value;
  qchar* const text = copy_value(qbytes_slice(resource, value, std::min(declared, there)).value_or(Bytes()));
  if (text == nullptr) return QERR_LOW_MEMORY;
  record.*key->field = text;
  return QERR_OK;
}

// Reads the strings of one table; `whole` tells whether all were read.
qerr_t read_table(Bytes resource, std::uint64_t table, std::uint64_t length, inv_cfci_t& record, bool& whole) noexcept {
  whole = false;
  for (std::uint64_t offset = table + first_string; offset < table + length;) {
    const std::uint64_t string_length = block_length(resource, offset, string_minimum);
    if (string_length == 0) return QERR_OK;
    if (const qerr_t code = read_string(resource, offset, record); code != QERR_OK) return code;
    offset = round_up(offset + string_length);
  }
  whole = true;
  return QERR_OK;
}

qerr_t read_tables(Bytes resource, std::uint64_t info, std::uint64_t length, inv_cfci_t& record,
                   inv_version_outcome& outcome) noexcept {
  for (std::uint64_t offset = info + first_table; offset < info + length;) {
    const std::uint64_t table_length = block_length(resource, offset, table_minimum);
    if (table_length == 0) return QERR_OK;
    if (is_readable_language(resource, offset)) {
      outcome = inv_version_outcome::read_strings;
      bool whole = false;
      const qerr_t code = read_table(resource, offset, table_length, record, whole);
      if (code != QERR_OK || !whole) return code;
    }
    offset = round_up(offset + table_length);
  }
  return QERR_OK;
}

}  // namespace

qerr_t inv_read_version(Bytes resource, inv_cfci_t& record, inv_version_outcome& outcome) noexcept {
  outcome = inv_version_outcome::no_strings;
  if (resource.size() < minimum_resource) return QERR_INVALID;
  if (resource.size() != cut_resource && resource.size() < unit_at(resource, 0)) return QERR_INVALID;
  if (unit_at(resource, key_offset) == 0) {
    outcome = inv_version_outcome::no_key;
    return QERR_OK;
  }
  if (!key_is(resource, key_offset, root_key)) return QERR_OK;

  // The root header takes 40 bytes with its key; the children follow its value.
  std::uint64_t offset = round_down(std::uint64_t{unit_at(resource, 2)} + 43);
  for (;;) {
    const std::uint64_t length = block_length(resource, offset, child_minimum);
    if (length == 0 || key_is(resource, offset + key_offset, variables_key)) return QERR_OK;
    if (key_is(resource, offset + key_offset, strings_key)) {
      return read_tables(resource, offset, length, record, outcome);
    }
    offset = round_up(offset + length);
  }
}

qerr_t utl_res_clbk(std::uint32_t /*type_id*/, const void* data, std::uint32_t size, std::uint32_t /*language_id*/,
                    std::uint32_t* stop, void* context, std::size_t context_size) noexcept {
  if (context == nullptr || context_size != sizeof(inv_cfci_t)) return QERR_INVALID;
  inv_version_outcome outcome{};
  const Bytes resource(static_cast<const std::byte*>(data), size);
  const qerr_t code = inv_read_version(resource, *static_cast<inv_cfci_t*>(context), outcome);
  if (outcome == inv_version_outcome::no_key) QLOG(QLOG_ERROR, u"utl_res_clbk - NULL p_ver_info->key");
  if (outcome == inv_version_outcome::read_strings) *stop = 1;
  return code;
}

void utl_chop_space_from_end(qchar* text) noexcept {
  if (text == nullptr) return;
  std::size_t length = qstr_len(text);
  while (length > 1 && is_space(text[length - 1])) --length;
  text[length] = 0;
}
