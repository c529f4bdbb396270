// A first look at a compound file, before a general reader is let near it.
//
// The general reader (libgsf) follows the directory tree by recursion, sorts each storage's children by insertion,
// keeps a bitmap of the allocation table on the stack and ends the process when memory runs out. Files that would
// drive it there are told apart here, in time and memory that small limits bound.
#pragma once

#include "msi/msi_source.h"

// Limits that no real package comes near; the first four also bound what the general reader does. Directory entries are
// counted whether they are used or not; their sorting takes the square of their number.
inline constexpr std::uint32_t COMPOUND_MAX_ENTRIES = 4096;
inline constexpr std::uint32_t COMPOUND_MAX_DEPTH = 1024;              // steps from the root entry down
inline constexpr std::uint64_t COMPOUND_MAX_TABLE_ENTRIES = 1U << 22;  // sectors: a bitmap of 512 KiB
inline constexpr std::uint64_t COMPOUND_MAX_MINI_TABLE = 1U << 22;     // bytes: a mini stream of 64 MiB
inline constexpr std::uint64_t COMPOUND_MAX_SIZE = 0xFFFFF000U;        // the reader's sector offsets have 32 bits

// True when `file` starts like a compound file: the first eight bytes.
[[nodiscard]] bool compound_has_signature(msi_source& file) noexcept;

// True when the header of `file` is sound, its sector table, directory chain and mini sector table end without a cycle
// within the limits, and its directory is a tree. Then `stack` holds the bytes that the general reader may take of the
// calling thread's stack. May throw std::bad_alloc.
[[nodiscard]] bool compound_is_sound(msi_source& file, std::size_t& stack);
