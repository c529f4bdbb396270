// A version resource is a tree of blocks, each on a 4-byte boundary of the resource:
//
//   offset  field
//   0       u16 wLength: bytes of the block with its children
//   2       u16 wValueLength: bytes (root) or units (string) of the value
//   4       u16 wType
//   6       szKey: UTF-16 text with its terminator, then padding to 4, the value, padding to 4, the children
//
//   VS_VERSION_INFO, value VS_FIXEDFILEINFO > StringFileInfo > table, key "<language><code page>" in hexadecimal >
//   string, key and value
//
//   VS_FIXEDFILEINFO: u32 dwSignature at 0, dwFileVersionMS at 8, dwFileVersionLS at 12; 52 bytes in all
//
// Each block is read inside the block that holds it, and its length, at least that of its header, leads to the next: so
// no byte is read more than once a level, and all loops end.
#include "record/version_facts.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "blib/blib_res.h"
#include "common/qlib/qbytes.h"

namespace {

constexpr std::size_t header_size = 6;
constexpr std::size_t most_bytes = 65536;  // wLength has 16 bits
constexpr std::size_t fixed_info_size = 52;
constexpr std::uint32_t fixed_info_signature = 0xFEEF04BD;

void add_problem(record_version_facts& facts, std::string_view code) {
  const auto found =
      std::ranges::find_if(facts.problems, [&](const record_problem& known) { return known.code == code; });
  if (found == facts.problems.end())
    facts.problems.push_back({code});
  else
    ++found->count;
}

constexpr std::size_t round_up(std::size_t value) { return (value + 3) & ~std::size_t{3}; }

// What `bytes` have from `offset` on; empty past their end.
Bytes behind(Bytes bytes, std::size_t offset) { return bytes.subspan(std::min(offset, bytes.size())); }

// Units before the first zero, or all that there are.
std::size_t text_units(Bytes bytes) {
  ByteReader reader(bytes);
  std::size_t count = 0;
  for (std::uint16_t unit = 0; reader.le(unit) && unit != 0;) ++count;
  return count;
}

std::u16string text_of(Bytes bytes, std::size_t units) {
  ByteReader reader(bytes);
  std::u16string text(units, u'\0');
  std::uint16_t unit = 0;
  for (std::size_t i = 0; i < units && reader.le(unit); ++i) text[i] = static_cast<char16_t>(unit);
  return text;
}

bool is_text(Bytes bytes, std::u16string_view text) {
  ByteReader reader(bytes);
  std::uint16_t unit = 0;
  return bytes.size() == text.size() * 2 &&
         std::ranges::all_of(text, [&](char16_t wanted) { return reader.le(unit) && unit == wanted; });
}

// One block, which begins on a 4-byte boundary.
struct block {
  Bytes key;          // without its terminator
  Bytes behind_key;   // the value and the children
  std::size_t value;  // wValueLength

  [[nodiscard]] bool is(std::u16string_view name) const { return is_text(key, name); }
  // What follows a value of `bytes`.
  [[nodiscard]] Bytes children(std::size_t bytes) const { return behind(behind_key, round_up(bytes)); }
};

// Reads the block that takes all of `bytes`; false when its key does not end.
bool read_block(Bytes bytes, block& out, record_version_facts& facts) {
  const Bytes texts = behind(bytes, header_size);
  const std::size_t units = text_units(texts);
  out = {texts.first(units * 2), behind(bytes, round_up(header_size + (units + 1) * 2)),
         qbytes_le<std::uint16_t>(bytes, 2).value_or(0)};
  if (units < texts.size() / 2) return true;
  add_problem(facts, "version_block_damaged");
  return false;
}

// Takes the next block of `rest` whose key is whole. False at the end, and at a block that does not lead to the next.
bool take_block(Bytes& rest, block& out, record_version_facts& facts) {
  while (rest.size() >= header_size) {
    const std::size_t length = qbytes_le<std::uint16_t>(rest, 0).value_or(0);
    const bool padding =
        std::ranges::all_of(rest.first(header_size), [](std::byte one) { return one == std::byte{0}; });
    if (padding) return false;
    if (length < header_size || length > rest.size()) add_problem(facts, "version_block_damaged");
    if (length < header_size) return false;
    const Bytes bytes = rest.first(std::min(length, rest.size()));
    rest = behind(rest, round_up(length));
    if (read_block(bytes, out, facts)) return true;
  }
  return false;
}

void add_string(const block& string, record_version_table& table, record_version_facts& facts) {
  const std::size_t name = string.key.size() / 2;
  const Bytes bytes = string.behind_key.first(std::min(string.value * 2, string.behind_key.size()));
  const std::size_t value = text_units(bytes);
  if (name > RECORD_MOST_VERSION_UNITS || value > RECORD_MOST_VERSION_UNITS) {
    add_problem(facts, "version_value_too_long");
  } else if (table.values.size() == RECORD_MOST_VERSION_VALUES) {
    add_problem(facts, "version_values_cut");
  } else {
    table.values.push_back({text_of(string.key, name), text_of(bytes, value)});
  }
}

// The key's eight digits; false when it is anything else.
bool read_table_key(Bytes key, record_version_table& table) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < key.size() / 2; ++i) {
    const std::uint32_t unit = qbytes_le<std::uint16_t>(key, std::uint64_t{i} * 2).value_or(0);
    const std::uint32_t letter = unit | 0x20;
    const bool is_digit = unit >= u'0' && unit <= u'9';
    if (key.size() != 16 || (!is_digit && (letter < u'a' || letter > u'f'))) return false;
    number = number << 4 | (is_digit ? unit - u'0' : letter - u'a' + 10);
  }
  table.language = static_cast<std::uint16_t>(number >> 16);
  table.code_page = static_cast<std::uint16_t>(number);
  return !key.empty();
}

void add_table(const block& from, record_version_facts& facts) {
  record_version_table table;
  if (!read_table_key(from.key, table)) {
    add_problem(facts, "version_table_key");
  } else if (facts.tables.size() == RECORD_MOST_VERSION_TABLES) {
    add_problem(facts, "version_tables_cut");
  } else {
    Bytes rest = from.children(from.value);
    for (block string; take_block(rest, string, facts);) add_string(string, table, facts);
    facts.tables.push_back(std::move(table));
  }
}

void add_fixed_info(Bytes info, record_version_facts& facts) {
  if (info.size() < fixed_info_size || qbytes_le<std::uint32_t>(info, 0) != fixed_info_signature) {
    add_problem(facts, "version_fixed_damaged");
  } else if (!facts.file_version) {
    facts.file_version = std::uint64_t{qbytes_le<std::uint32_t>(info, 8).value_or(0)} << 32 |
                         qbytes_le<std::uint32_t>(info, 12).value_or(0);
  }
}

qerr_t visit(std::uint32_t /*type_id*/, const void* data, std::uint32_t size, std::uint32_t /*language_id*/,
             std::uint32_t* /*stop*/, void* context, std::size_t /*context_size*/) {
  record_add_version({static_cast<const std::byte*>(data), size}, *static_cast<record_version_facts*>(context));
  return QERR_OK;
}

}  // namespace

void record_add_version(Bytes resource, record_version_facts& facts) {
  Bytes rest = resource.first(std::min(resource.size(), most_bytes));
  const std::size_t length = qbytes_le<std::uint16_t>(rest, 0).value_or(0);
  const bool fits = length >= header_size && length <= rest.size();
  block root;
  if (rest.size() <= header_size || !read_block(fits ? rest.first(length) : rest, root, facts) ||
      !root.is(u"VS_VERSION_INFO")) {
    add_problem(facts, "version_not_readable");
    return;
  }
  if (!fits || root.value > root.behind_key.size()) add_problem(facts, "version_block_damaged");
  if (root.value != 0) add_fixed_info(root.behind_key.first(std::min(root.value, root.behind_key.size())), facts);
  rest = root.children(root.value);
  for (block child; take_block(rest, child, facts);) {
    if (!child.is(u"StringFileInfo")) continue;
    Bytes tables = child.children(child.value);
    for (block table; take_block(tables, table, facts);) add_table(table, facts);
  }
}

qerr_t record_get_version_facts(blib_bin* image, record_version_facts& facts) noexcept try {
  if (image == nullptr) return QERR_ARG1;
  blib_res_section section{};
  if (blib_res_get_section(image, &section) != QERR_OK) return QERR_OK;
  const auto buffer = std::make_unique_for_overwrite<std::byte[]>(most_bytes);
  std::uint32_t stop = 0;
  const qerr_t code = blib_res_walk_into({buffer.get(), most_bytes}, *image, section, BLIB_RES_VERSION, visit, &stop,
                                         &facts, sizeof(facts));
  if (code == QERR_OK || code == QERR_NOT_FOUND) return QERR_OK;
  // A directory without entries, and a tree that leads to itself.
  if (code != QERR_LOW_MEMORY && code != QERR_OVERFLOW) return code;
  add_problem(facts, "version_tree_damaged");
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}
