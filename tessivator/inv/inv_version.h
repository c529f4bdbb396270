// Reads the strings of one version resource into a file information record.
#pragma once

#include "common/qlib/qerr.h"
#include "inv/inv_cfci.h"

enum class inv_version_outcome : std::uint8_t {
  no_strings,   // no table of English or neutral strings was met
  no_key,       // the block carries no root key
  read_strings  // at least one string table was read
};

// Copies into the record each of its seven version strings that it lacks and the resource has, from tables whose
// language is English or neutral; of several values for a key the first stays, an empty one included. White space at
// a value's end is cut, but never its first character. `outcome` is set in any case.
// QERR_INVALID when the resource is shorter than 46 bytes or than the length that it declares (a resource of exactly
// 8000 bytes was cut by the resource walk and may declare more), QERR_LOW_MEMORY when a string cannot be allocated.
[[nodiscard]] qerr_t inv_read_version(Bytes resource, inv_cfci_t& record, inv_version_outcome& outcome) noexcept;
