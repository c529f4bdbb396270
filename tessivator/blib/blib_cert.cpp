#include "blib/blib_cert.h"

#include <algorithm>

#include "common/qlib/qbytes.h"
#include "common/qlib/qder.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;

namespace {

constexpr std::uint32_t header_size = 8;
constexpr std::uint16_t own_revision = 0xC102;
constexpr std::uint16_t own_type = 0xABFF;

struct entry_header {
  std::uint32_t length;
  std::uint16_t revision;
  std::uint16_t type;
};

entry_header current(const blib_cert_itr& iterator) noexcept {
  const Bytes bytes(iterator.header);
  return {qbytes_le<std::uint32_t>(bytes, 0).value_or(0), qbytes_le<std::uint16_t>(bytes, 4).value_or(0),
          qbytes_le<std::uint16_t>(bytes, 6).value_or(0)};
}

qerr_t load_header(blib_cert_itr& iterator, blib_bin& image, const char* function) noexcept {
  iterator.header.fill(std::byte{0});
  if (iterator.current_offset > 0xFFFFFFFF) return QERR_OK;  // beyond 32-bit offsets: reads as zero
  const qerr_t code = blib_bin_get_buf(&image, iterator.header.data(),
                                       static_cast<std::uint32_t>(iterator.current_offset), header_size);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_ERROR, function, u"Failed to get certificate header for %s. error %d (0x%x).\n", image.file_name, code,
            code);
  }
  return code;
}

// Counts the headers of a walk. Stops at an entry of length 0, which would not advance.
std::uint32_t count_entries(blib_bin& image) noexcept {
  blib_cert_itr iterator;
  if (blib_bin_cert_itr_init(&iterator, &image) != QERR_OK) return 0;
  std::uint32_t count = 0;
  while (current(iterator).length != 0 && count < BLIB_CERT_MOST_ENTRIES) {
    ++count;
    if (blib_bin_cert_itr_next(&iterator, &image, current(iterator).length) != QERR_OK) break;
  }
  return count;
}

// Where the content of the current entry is, and how much of it exists.
blib_authenticode_entry locate_entry(const blib_cert_itr& iterator, const blib_bin& image) noexcept {
  const entry_header header = current(iterator);
  const bool whole = header.revision == own_revision && header.type == own_type;
  const std::uint32_t skipped = whole ? 0 : header_size;
  if (header.length < header_size) return {};
  const std::uint64_t offset = iterator.current_offset + skipped;
  // Offsets in an image have 32 bits; content that starts beyond that does not exist, however large the file is.
  const std::uint64_t exists = offset < image.full_size && offset <= 0xFFFFFFFF ? image.full_size - offset : 0;
  const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(header.length - skipped, exists));
  return {length, header.revision, header.type, nullptr, length == 0 ? 0 : static_cast<std::uint32_t>(offset)};
}

qerr_t locate_entries(blib_bin& image, blib_authenticode_list& list) noexcept {
  blib_cert_itr iterator;
  qerr_t code = blib_bin_cert_itr_init(&iterator, &image);
  for (std::uint32_t i = 0; code == QERR_OK && i < list.count; ++i) {
    const entry_header header = current(iterator);
    QLOG_AS(QLOG_DETAIL, "blib_bin_get_authenticode_signature_buf_alloc",
            u"Certificate %d dwLength[%d] wRevision[0x%04x] wCertificateType[0x%04x]\n", i, header.length,
            header.revision, header.type);
    list.entries[i] = locate_entry(iterator, image);
    code = blib_bin_cert_itr_next(&iterator, &image, header.length);
    if (code == QERR_END || code == QERR_NOT_FOUND) return QERR_OK;
  }
  return code;
}

// Cuts the content of a long entry to the signature at its start; false when the signature itself is too long.
bool length_to_read(blib_bin& image, std::uint32_t offset, std::uint32_t& length) noexcept {
  std::array<std::byte, QDER_HEAD> head{};
  if (blib_bin_get_buf(&image, head.data(), offset, QDER_HEAD) != QERR_OK)
    return true;  // the full read will fail and report it
  const std::uint64_t size = qder_signature_size(head, length);
  if (size > QDER_MOST_SIGNATURE) {
    QLOG_AS(QLOG_WARNING, "blib_bin_get_authenticode_signature_buf_alloc",
            u"Not read: a signature of %llu bytes in %s; at most %llu are taken\n", size, image.file_name,
            QDER_MOST_SIGNATURE);
    return false;
  }
  length = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, length));
  return true;
}

}  // namespace

qerr_t blib_bin_cert_itr_init(blib_cert_itr* iterator, blib_bin* image) noexcept {
  if (iterator == nullptr || image == nullptr) return QERR_NOT_FOUND;
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  if (blib_bin_get_directory(image, BLIB_DIRECTORY_SECURITY, &address, &size) != QERR_OK) return QERR_NOT_FOUND;
  if (size == 0 || address == 0) return QERR_NOT_FOUND;
  iterator->table_offset = address;
  iterator->table_size = size;
  iterator->current_offset = address;
  iterator->has_header = true;
  const qerr_t code = load_header(*iterator, *image, "blib_bin_cert_itr_init");
  iterator->length_sum = current(*iterator).length;
  return iterator->length_sum > size ? QERR_NOT_FOUND : code;
}

qerr_t blib_bin_cert_itr_next(blib_cert_itr* iterator, blib_bin* image, std::uint32_t length) noexcept {
  if (iterator == nullptr || image == nullptr || length == 0) return QERR_NOT_FOUND;
  if (!iterator->has_header) return QERR_NOT_PERMITTED;
  iterator->header.fill(std::byte{0});
  const std::uint64_t end = std::uint64_t{iterator->table_offset} + iterator->table_size;
  iterator->current_offset += (std::uint64_t{length} + 7) / 8 * 8;
  // Rounded offsets decide here and raw lengths below, so a last entry without padding still ends the table.
  if (iterator->current_offset > end) {
    QLOG(QLOG_ERROR, u"For %s Either the attribute certificate table or the size field is corrupted error %d (0x%x).\n",
         image->file_name, QERR_OVERFLOW, QERR_OVERFLOW);
    return QERR_OVERFLOW;
  }
  if (iterator->current_offset == end) return QERR_END;
  const qerr_t code = load_header(*iterator, *image, "blib_bin_cert_itr_next");
  iterator->length_sum += current(*iterator).length;
  return iterator->length_sum > iterator->table_size ? QERR_NOT_FOUND : code;
}

qerr_t blib_bin_get_authenticode_table_alloc(blib_bin* image, blib_authenticode_list** out) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  *out = nullptr;
  const std::uint32_t count = count_entries(*image);
  if (count == 0) return QERR_NOT_FOUND;
  BlibAuthenticodeOwner list(static_cast<blib_authenticode_list*>(qmem_calloc(1, sizeof(blib_authenticode_list))));
  if (list == nullptr) return QERR_LOW_MEMORY;
  list->entries = static_cast<blib_authenticode_entry*>(qmem_calloc(count, sizeof(blib_authenticode_entry)));
  if (list->entries == nullptr) return QERR_LOW_MEMORY;
  list->count = count;
  const qerr_t code = locate_entries(*image, *list);
  if (code == QERR_OK) *out = list.release();
  return code;
}

void blib_bin_load_authenticode_entry(blib_bin* image, blib_authenticode_entry* entry) noexcept {
  const blib_authenticode_entry place = *entry;
  *entry = {};
  std::uint32_t length = place.length;
  if (length > QDER_MOST_SIGNATURE && !length_to_read(*image, place.offset, length)) return;
  QmemPtr<std::byte> buffer(static_cast<std::byte*>(qmem_calloc(1, std::max<std::size_t>(length, 1))));
  if (buffer == nullptr) {
    (void)qstr_console_printf(u"Failed to allocate buffer\n");
    return;
  }
  if (length != 0 && blib_bin_get_buf(image, buffer.get(), place.offset, length) != QERR_OK) {
    (void)qstr_console_printf(u"Failed to read certificate buf from bin\n");
    return;
  }
  *entry = {length, place.revision, place.type, buffer.release(), place.offset};
}

void blib_bin_unload_authenticode_entry(blib_authenticode_entry* entry) noexcept {
  qmem_free(entry->buffer);
  entry->buffer = nullptr;
}

qerr_t blib_bin_get_authenticode_signature_buf_alloc(blib_bin* image, blib_authenticode_list** out) noexcept {
  const qerr_t code = blib_bin_get_authenticode_table_alloc(image, out);
  for (std::uint32_t i = 0; code == QERR_OK && i < (*out)->count; ++i) {
    blib_bin_load_authenticode_entry(image, &(*out)->entries[i]);
  }
  return code;
}

void blib_bin_free_authenticode_signature_buf(blib_authenticode_list* list) noexcept {
  if (list == nullptr) return;
  for (std::uint32_t i = 0; list->entries != nullptr && i < list->count; ++i) qmem_free(list->entries[i].buffer);
  qmem_free(list->entries);
  qmem_free(list);
}
