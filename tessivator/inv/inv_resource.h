// What the information record takes from an image that is already open.
#pragma once

#include "inv/inv_cfci.h"

// inv_get_resource_data over an image that the caller opened from `path` and keeps.
[[nodiscard]] qerr_t inv_get_resource_data(const qchar* path, blib_bin* image, inv_cfci_t* record) noexcept;
