// The attribute certificate table of an image (PE/COFF), which carries its Authenticode signatures.
//
//   entry: dwLength u32 (header included), wRevision u16, wCertificateType u16, content
//   each entry starts at a multiple of 8 from the previous one's start
#pragma once

#include <array>

#include "blib/blib_bin.h"

// The limit on entries. Real tables have one or two; without a limit, a large file of empty entries would cost one read
// for each.
inline constexpr std::uint32_t BLIB_CERT_MOST_ENTRIES = 65536;

// Walks the table. Zero it before init. Offsets are 64 bits wide so that sums cannot wrap.
struct blib_cert_itr {
  std::uint32_t table_offset = 0;
  std::uint32_t table_size = 0;
  std::uint64_t length_sum = 0;  // of the raw lengths of the headers read so far
  std::uint64_t current_offset = 0;
  bool has_header = false;
  std::array<std::byte, 8> header{};  // the current entry's
};

// Finds the table and reads the first header. QERR_NOT_FOUND when there is no table or its first entry is longer than
// the table; or a read error.
[[nodiscard]] qerr_t blib_bin_cert_itr_init(blib_cert_itr* iterator, blib_bin* image) noexcept;

// Reads the next header, given the length of the current entry. QERR_END at the exact end of the table; QERR_OVERFLOW
// when the rounded lengths run past it; QERR_NOT_FOUND for a bad argument or when the raw lengths exceed it;
// QERR_NOT_PERMITTED before init; or a read error.
[[nodiscard]] qerr_t blib_bin_cert_itr_next(blib_cert_itr* iterator, blib_bin* image, std::uint32_t length) noexcept;

// The content of one entry: everything after the header, or the whole entry for revision 0xC102 and type 0xABFF. It
// ends at the end of the file. An entry that could not be read, or is shorter than a header, is empty. Of content over
// 16 MiB only the signature at its start is read; if the signature itself is longer (by its DER header, else by the
// entry), the entry stays empty and a warning is logged.
struct blib_authenticode_entry {
  std::uint32_t length;
  std::uint16_t revision;
  std::uint16_t type;
  std::byte* buffer;     // owned; null when empty or not loaded
  std::uint32_t offset;  // of the content in the file
};

struct blib_authenticode_list {
  std::uint32_t count;
  blib_authenticode_entry* entries;  // owned
};

// All entries in table order. Returns QERR_NOT_FOUND without a table, QERR_OVERFLOW when the table overruns,
// QERR_LOW_MEMORY, or a read error. The caller frees the result with blib_bin_free_authenticode_signature_buf, which
// ignores null.
[[nodiscard]] qerr_t blib_bin_get_authenticode_signature_buf_alloc(blib_bin* image,
                                                                   blib_authenticode_list** out) noexcept;
// The same without content. Load and unload the content one entry at a time: a crafted table may hold gigabytes.
[[nodiscard]] qerr_t blib_bin_get_authenticode_table_alloc(blib_bin* image, blib_authenticode_list** out) noexcept;
void blib_bin_load_authenticode_entry(blib_bin* image, blib_authenticode_entry* entry) noexcept;
void blib_bin_unload_authenticode_entry(blib_authenticode_entry* entry) noexcept;
void blib_bin_free_authenticode_signature_buf(blib_authenticode_list* list) noexcept;
using BlibAuthenticodeOwner =
    std::unique_ptr<blib_authenticode_list, FreeWith<blib_bin_free_authenticode_signature_buf>>;
