// Reads the strings of one version resource into a file information record.
#pragma once

#include "common/qlib/qbytes.h"
#include "common/qlib/qerr.h"
#include "record/inv_record.h"

enum class inv_version_outcome : std::uint8_t {
  no_strings,   // no table of English or neutral strings was met
  no_key,       // the block carries no root key
  read_strings  // at least one string table was read
};

// Copies into the record each of its seven version strings that is still missing, from tables in English or without
// language. The first of several values for a key wins, even if empty. White space at the end of a value is cut, but
// never its first character. `outcome` is always set.
// QERR_INVALID when the resource is shorter than 46 bytes or than its declared length (a resource of exactly 8000 bytes
// was cut by the walk and may declare more), QERR_LOW_MEMORY when a string cannot be allocated.
[[nodiscard]] qerr_t inv_read_version(Bytes resource, inv_cfci_t& record, inv_version_outcome& outcome) noexcept;

// Resource visitor (blib_res_visitor) for version resources; the two caller values are an inv_cfci_t* and its size.
// Fills the record's version strings and ends the walk once a string table was read. QERR_INVALID for a missing
// record, another size or a resource that inv_read_version refuses, QERR_LOW_MEMORY.
[[nodiscard]] qerr_t utl_res_clbk(std::uint32_t type_id, const void* data, std::uint32_t size,
                                  std::uint32_t language_id, std::uint32_t* stop, void* context,
                                  std::size_t context_size) noexcept;

// Cuts white space (blank, \t, \n, \v, \f, \r) from the end of `text`, but never its first character.
void utl_chop_space_from_end(qchar* text) noexcept;
