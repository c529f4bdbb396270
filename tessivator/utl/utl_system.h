// The system services under the path helpers. Tests put their own in place of the platform's.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

class utl_system {
 public:
  virtual ~utl_system() = default;
  // The long form of an existing path. A null `buffer` asks for the size; `units` is the buffer's size, then the size
  // that is needed, both with the terminator. Returns the system's own error value, or 0. May throw std::bad_alloc.
  [[nodiscard]] virtual std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) = 0;
  // A system error value in the common error space.
  [[nodiscard]] virtual qerr_t translate(std::uint32_t error) noexcept = 0;
  // The mount point of a path that names no share. May throw std::bad_alloc.
  [[nodiscard]] virtual qerr_t volume_path(const qchar* path, std::u16string& out) = 0;
  // A registry text value of HKEY_LOCAL_MACHINE. A null `buffer` asks for the size; `bytes` is the buffer's size, then
  // the size of the value.
  [[nodiscard]] virtual qerr_t registry_text(const qchar* key, const qchar* value, qchar* buffer,
                                             std::uint32_t& bytes) noexcept = 0;
};

[[nodiscard]] utl_system& utl_platform_system() noexcept;

// Replaces the system services (null: the platform's again). For tests; not for concurrent use.
void utl_set_system(utl_system* system) noexcept;
