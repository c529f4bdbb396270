// The headers of an image.
//
//   offset  field                       (PE/COFF format)
//   0       e_magic "MZ"                DOS header, 64 bytes
//   60      e_lfanew, signed            file offset of the NT headers
//   +0      Signature "PE\0\0"          NT headers
//   +4      Machine, NumberOfSections at +2, TimeDateStamp at +4, SizeOfOptionalHeader at +16, Characteristics at +18
//   +24     Magic 0x10B or 0x20B        optional header; Subsystem at +68, data directories at +96 (PE32) or +112
//   (PE32+) behind  section headers of 40 bytes each
#include "blib/blib_headers.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "cfg/cfg.h"
#include "common/qlib/qbytes.h"
#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;
#undef QLOG_SOURCE
#define QLOG_SOURCE "blib_bin.cpp"

namespace {

constexpr std::uint64_t dos_header_size = 64;
constexpr std::uint16_t dos_magic = 0x5A4D;
constexpr std::uint32_t nt_signature = 0x00004550;
constexpr std::uint16_t magic_32 = 0x10B;
constexpr std::uint16_t magic_64 = 0x20B;
// The size of the PE32 NT headers. For a PE32+ image this covers the first 14 data directories, which is all we read.
constexpr std::uint32_t nt_headers_size = 248;
constexpr std::uint32_t optional_header_offset = 24;
constexpr std::uint64_t section_header_size = 40;
constexpr std::uint64_t strict_checks = 0x1000;

// Position and size of the section table as the file header gives them, unchecked.
struct table_place {
  std::uint64_t offset;
  std::uint64_t length;
};

qerr_t locate_nt_headers(blib_bin& image, std::uint32_t& nt_offset) {
  const auto magic = qbytes_le<std::uint16_t>(image.view, 0);
  const auto lfanew = qbytes_le<std::uint32_t>(image.view, 60);
  if (image.view.size() < dos_header_size || !magic || *magic != dos_magic || !lfanew) return QERR_BAD_IMAGE;
  if (*lfanew > 0x7FFFFFFF) return QERR_BAD_IMAGE;  // the field is signed: a negative value
  nt_offset = *lfanew;
  const std::uint64_t end = std::uint64_t{nt_offset} + nt_headers_size;
  if (end <= image.view.size()) {
    image.nt_headers = image.view.subspan(nt_offset);
    return QERR_OK;
  }
  if (end >= image.full_size) return QERR_BAD_IMAGE;
  image.nt_copy.assign(nt_headers_size, std::byte{0});
  const qerr_t code = blib_bin_get_buf(&image, image.nt_copy.data(), nt_offset, nt_headers_size);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, "blib_bin_open_by_handle", u"Failed to read %d bytes at offset %d. err = %d (0x%08x).\n",
            nt_headers_size, nt_offset, code, code);
    return code;
  }
  image.nt_headers = image.nt_copy;
  return QERR_OK;
}

qerr_t check_nt_headers(blib_bin& image) {
  const auto signature = qbytes_le<std::uint32_t>(image.nt_headers, 0);
  const auto magic = qbytes_le<std::uint16_t>(image.nt_headers, optional_header_offset);
  if (!signature || *signature != nt_signature || !magic) return QERR_BAD_IMAGE;
  if (*magic != magic_32 && *magic != magic_64) return QERR_BAD_IMAGE;
  image.is_64bit = *magic == magic_64;
  return QERR_OK;
}

std::uint16_t header_field(const blib_bin& image, std::uint64_t offset) {
  return qbytes_le<std::uint16_t>(image.nt_headers, offset).value_or(0);
}

// The table may end outside the view here; the caller decides whether it is used.
qerr_t check_table_in_file(const blib_bin& image, const table_place& table, std::uint16_t optional_size, bool strict,
                           bool& cleared) {
  cleared = false;
  if (table.length <= image.full_size && table.offset <= image.full_size - table.length) return QERR_OK;
  if (strict) return QERR_BAD_IMAGE;
  if (table.length == 0) return QERR_OK;
  if (image.full_size > optional_size) return QERR_BAD_IMAGE;
  cleared = true;
  return QERR_OK;
}

// Copies the section table; a table that runs past the end of the file is cut there.
qerr_t copy_table(blib_bin& image, const table_place& table) {
  const std::uint64_t exists = table.offset < image.full_size ? image.full_size - table.offset : 0;
  const auto length = static_cast<std::uint32_t>(std::min(table.length, exists));
  image.section_copy.assign(length, std::byte{0});
  if (length == 0 || table.offset > 0xFFFFFFFF) return QERR_OK;
  const auto offset = static_cast<std::uint32_t>(table.offset);
  const qerr_t code = blib_bin_get_buf(&image, image.section_copy.data(), offset, length);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, "blib_bin_open_by_handle",
            u"Failed to map %d bytes at offset %d to get section header. err = %d (0x%08x).\n", length, offset, code,
            code);
  }
  return code;
}

// Strict mode: the raw data of a section must not end beyond the file. The sum has 32 bits, like the fields.
qerr_t check_raw_data(const blib_bin& image) {
  const Bytes table = image.section_table.empty() ? Bytes(image.section_copy) : image.section_table;
  qerr_t code = QERR_OK;
  for (std::uint64_t at = 0; at + section_header_size <= table.size(); at += section_header_size) {
    const std::uint32_t size = qbytes_le<std::uint32_t>(table, at + 16).value_or(0);
    const std::uint32_t pointer = qbytes_le<std::uint32_t>(table, at + 20).value_or(0);
    const std::uint32_t end = pointer + size;
    if (size == 0 || pointer == 0 || end <= image.full_size) continue;
    QLOG_AS(QLOG_INFO, "blib_bin_open_by_handle", u"SizeOfRawData exceeds size of binary.");
    code = QERR_BAD_IMAGE;
  }
  return code;
}

qerr_t locate_section_table(blib_bin& image, std::uint32_t nt_offset) {
  const bool strict = (cfg_CustomerConfig().load(std::memory_order_relaxed) & strict_checks) != 0;
  const std::uint16_t optional_size = header_field(image, 4 + 16);
  const table_place table{std::uint64_t{nt_offset} + optional_header_offset + optional_size,
                          header_field(image, 4 + 2) * section_header_size};
  if (!image.nt_copy.empty()) {
    // A copied table is used only for the strict check.
    const qerr_t code = copy_table(image, table);
    return code != QERR_OK || !strict ? code : check_raw_data(image);
  }
  bool cleared = false;
  const qerr_t code = check_table_in_file(image, table, optional_size, strict, cleared);
  if (code != QERR_OK || cleared) return code;
  const auto inside = qbytes_slice(image.view, table.offset, table.length);
  if (inside) image.section_table = *inside;
  if (!strict) return QERR_OK;
  // The strict check covers all sections, even when the view ends before them.
  const qerr_t copied = inside ? QERR_OK : copy_table(image, table);
  return copied != QERR_OK ? copied : check_raw_data(image);
}

}  // namespace

qerr_t blib_bin_parse_headers(blib_bin* image) noexcept {
  if (image == nullptr) return QERR_ARG1;
  try {
    std::uint32_t nt_offset = 0;
    qerr_t code = locate_nt_headers(*image, nt_offset);
    if (code == QERR_OK) code = check_nt_headers(*image);
    if (code == QERR_OK) code = locate_section_table(*image, nt_offset);
    return code;
  } catch (const std::bad_alloc&) {
    return QERR_LOW_MEMORY;
  }
}

qerr_t blib_bin_get_directory(const blib_bin* image, std::uint32_t index, std::uint32_t* address,
                              std::uint32_t* size) noexcept {
  *address = 0;
  *size = 0;
  if (image == nullptr) return QERR_ARG1;
  const std::uint64_t at = optional_header_offset + (image->is_64bit ? 112U : 96U) + std::uint64_t{index} * 8;
  const auto entry = qbytes_slice(image->nt_headers, at, 8);
  if (!entry) return QERR_NOT_FOUND;
  *address = qbytes_le<std::uint32_t>(*entry, 0).value_or(0);
  *size = qbytes_le<std::uint32_t>(*entry, 4).value_or(0);
  return QERR_OK;
}

std::uint32_t blib_bin_section_count(const blib_bin* image) noexcept {
  return static_cast<std::uint32_t>(image->section_table.size() / section_header_size);
}

bool blib_bin_get_section(const blib_bin* image, std::uint32_t index, blib_section* section) noexcept {
  const auto header = qbytes_slice(image->section_table, index * section_header_size, section_header_size);
  if (!header) return false;
  *section = {};
  std::memcpy(section->name, header->data(), 8);
  section->virtual_size = qbytes_le<std::uint32_t>(*header, 8).value_or(0);
  section->virtual_address = qbytes_le<std::uint32_t>(*header, 12).value_or(0);
  section->raw_size = qbytes_le<std::uint32_t>(*header, 16).value_or(0);
  section->raw_pointer = qbytes_le<std::uint32_t>(*header, 20).value_or(0);
  return true;
}

std::uint16_t blib_bin_machine(const blib_bin* image) noexcept { return header_field(*image, 4); }

std::uint32_t blib_bin_link_time(const blib_bin* image) noexcept {
  return qbytes_le<std::uint32_t>(image->nt_headers, 4 + 4).value_or(0);
}

std::uint16_t blib_bin_characteristics(const blib_bin* image) noexcept { return header_field(*image, 4 + 18); }

// At the same place in both widths.
std::uint16_t blib_bin_subsystem(const blib_bin* image) noexcept {
  return header_field(*image, optional_header_offset + 68);
}
