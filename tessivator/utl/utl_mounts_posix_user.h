// The mount table of this process.
#pragma once

#include <cstdint>
#include <string>

#include "common/qlib/qtypes.h"

struct utl_mount {
  std::string point;   // absolute
  std::string type;    // the file system's name, such as "ext4"
  std::string source;  // a device's path, a server's export, or any word
};

// The mount that holds `path`: that of the deepest existing part, links followed. Returns 0 or an errno value. May
// throw std::bad_alloc.
[[nodiscard]] int utl_find_mount(const qchar* path, utl_mount& out);
