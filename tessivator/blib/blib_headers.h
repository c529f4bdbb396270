// The headers of an image.
#pragma once

#include "blib/blib_image.h"

// The data directory entries that are read here. The address of the security entry is a file offset, not an RVA.
inline constexpr std::uint32_t BLIB_DIRECTORY_RESOURCE = 2;
inline constexpr std::uint32_t BLIB_DIRECTORY_SECURITY = 4;

// Bits of the file header's characteristics.
inline constexpr std::uint16_t BLIB_FILE_EXECUTABLE = 0x0002;
inline constexpr std::uint16_t BLIB_FILE_DLL = 0x2000;

// The fields of a section header that are used.
struct blib_section {
  char name[9];  // terminated
  std::uint32_t virtual_size;
  std::uint32_t virtual_address;
  std::uint32_t raw_size;
  std::uint32_t raw_pointer;
};

// Validates the DOS header, NT headers and section table of a view; called by open. QERR_ARG1 without an image,
// QERR_BAD_IMAGE, QERR_LOW_MEMORY, or a read error.
[[nodiscard]] qerr_t blib_bin_parse_headers(blib_bin* image) noexcept;

// Entry `index` of the data directory: in PE32 at byte 96 + 8 x index of the optional header, in PE32+ at 112 + 8 x
// index. NumberOfRvaAndSizes is not checked, because a loader may ignore it. QERR_NOT_FOUND when the entry is outside
// the headers in memory, QERR_ARG1 without an image; address and size are then 0.
[[nodiscard]] qerr_t blib_bin_get_directory(const blib_bin* image, std::uint32_t index, std::uint32_t* address,
                                            std::uint32_t* size) noexcept;

// The number of sections in the table (0 when it could not be read), and one of them; false past the last.
[[nodiscard]] std::uint32_t blib_bin_section_count(const blib_bin* image) noexcept;
[[nodiscard]] bool blib_bin_get_section(const blib_bin* image, std::uint32_t index, blib_section* section) noexcept;

// Fields of the file header and of the optional header.
[[nodiscard]] std::uint16_t blib_bin_machine(const blib_bin* image) noexcept;
// TimeDateStamp: seconds since 1970 by the linker's clock, or whatever a reproducible build puts there.
[[nodiscard]] std::uint32_t blib_bin_link_time(const blib_bin* image) noexcept;
[[nodiscard]] std::uint16_t blib_bin_characteristics(const blib_bin* image) noexcept;
[[nodiscard]] std::uint16_t blib_bin_subsystem(const blib_bin* image) noexcept;
