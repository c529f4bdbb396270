// What the information record takes from an image that is already open, and the visitor that reads its version strings.
#pragma once

#include "blib/blib_res.h"
#include "inv/inv_cfci.h"

// Resource visitor for version resources; the two caller values are an inv_cfci_t* and its size. Fills the record's
// version strings (inv_version.h) and ends the walk once a string table was read. QERR_INVALID for a missing record,
// another size or a resource that inv_read_version refuses, QERR_LOW_MEMORY.
[[nodiscard]] qerr_t utl_res_clbk(std::uint32_t type_id, const void* data, std::uint32_t size,
                                  std::uint32_t language_id, std::uint32_t* stop, void* context,
                                  std::size_t context_size) noexcept;

// inv_get_resource_data over an image that the caller opened from `path` and keeps.
[[nodiscard]] qerr_t inv_get_resource_data(const qchar* path, blib_bin* image, inv_cfci_t* record) noexcept;
