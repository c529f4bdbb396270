// The resource directory of an image: finds its section and walks type, name and language for one resource type.
//
//   resource directory, 16 bytes: u16 named entries at 12, u16 ID entries at 14; its entries follow, 8 bytes each:
//     u32 name or ID, u32 offset (top bit: subdirectory; low 31 bits: from the start of the resource directory)
//   data entry, 16 bytes: u32 data RVA, u32 size
//   file offset of an RVA = RVA - section's virtual address + section's raw data pointer
#pragma once

#include <span>

#include "blib/blib_bin.h"
#include "common/qlib/qbytes.h"

inline constexpr std::uint32_t BLIB_RES_VERSION = 16;
inline constexpr std::uint32_t BLIB_RES_MANIFEST = 24;

// Only the first 8000 bytes of a resource are read.
inline constexpr std::uint32_t BLIB_RES_MOST_BYTES = 8000;

// The section that holds the resource directory.
struct blib_res_section {
  blib_section header;
  std::uint32_t directory_address;  // RVA of the resource directory
};

// Called with each resource of the wanted type: its bytes (valid during the call), their length, and the language (low
// 16 bits of the ID of the language entry). Set *stop to 1, or return a code other than 0, to end the walk.
using blib_res_visitor = qerr_t (*)(std::uint32_t type_id, const void* data, std::uint32_t size,
                                    std::uint32_t language_id, std::uint32_t* stop, void* context,
                                    std::size_t context_size);

// Finds the first section in the table that contains the address of the resource directory. QERR_NOT_FOUND when there
// is no section table or no such section; QERR_ALL_BITS for a null argument.
[[nodiscard]] qerr_t blib_res_get_section(blib_bin* image, blib_res_section* section) noexcept;

// One directory of the tree. Entries beyond the end of the file read as zero and take no memory.
struct blib_res_directory {
  std::uint32_t count = 0;         // named and ID entries together
  std::vector<std::byte> entries;  // as far as the file holds them

  [[nodiscard]] std::uint32_t id(std::uint32_t index) const noexcept { return field(index, 0); }
  [[nodiscard]] std::uint32_t offset(std::uint32_t index) const noexcept { return field(index, 4); }

 private:
  [[nodiscard]] std::uint32_t field(std::uint32_t index, std::uint32_t at) const noexcept {
    return qbytes_le<std::uint32_t>(entries, std::uint64_t{index} * 8 + at).value_or(0);
  }
};

// Reads the directory at a file offset with all its entries. QERR_LOW_MEMORY (also for a directory without entries) or
// a read error; `directory` is then empty.
[[nodiscard]] qerr_t blib_res_get_dir_entry(blib_bin* image, std::uint32_t offset,
                                            blib_res_directory* directory) noexcept;

// Calls `visitor` for every resource of type `type_id`. QERR_NOT_FOUND when the type is absent; QERR_LOW_MEMORY (also
// for a directory without entries); QERR_OVERFLOW when the tree costs more than an honest one can (see the source); a
// read error; or the code of the visitor.
[[nodiscard]] qerr_t blib_res_walk(blib_bin* image, const blib_res_section* section, std::uint32_t type_id,
                                   blib_res_visitor visitor, std::uint32_t* stop, void* context,
                                   std::size_t context_size) noexcept;

// The same, with resources cut to the size of `buffer` instead. May throw std::bad_alloc, so that QERR_LOW_MEMORY
// means a directory without entries.
[[nodiscard]] qerr_t blib_res_walk_into(std::span<std::byte> buffer, blib_bin& image, const blib_res_section& section,
                                        std::uint32_t type_id, blib_res_visitor visitor, std::uint32_t* stop,
                                        void* context, std::size_t context_size);
