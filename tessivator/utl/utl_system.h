// The system services under the path helpers. Tests put their own in place of the platform's.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

class utl_system {
 public:
  virtual ~utl_system() = default;
  // The long form of an existing path. With a null `buffer`, `units` becomes the size needed; else it is the size of
  // the buffer, then the size used. Both include the terminator. Returns the system error value, or 0. May throw
  // std::bad_alloc.
  [[nodiscard]] virtual std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) = 0;
  // Translates a system error value into our codes.
  [[nodiscard]] virtual qerr_t translate(std::uint32_t error) noexcept = 0;
  // The mount point of a path that is not on a share. May throw std::bad_alloc.
  [[nodiscard]] virtual qerr_t volume_path(const qchar* path, std::u16string& out) = 0;
  // A registry text value of HKEY_LOCAL_MACHINE. With a null `buffer`, `bytes` becomes the size needed; else it is the
  // size of the buffer, then that of the value.
  [[nodiscard]] virtual qerr_t registry_text(const qchar* key, const qchar* value, qchar* buffer,
                                             std::uint32_t& bytes) noexcept = 0;
};

[[nodiscard]] utl_system& utl_platform_system() noexcept;

// Replaces the system services (null: the platform's again). For tests; not for concurrent use.
void utl_set_system(utl_system* system) noexcept;
