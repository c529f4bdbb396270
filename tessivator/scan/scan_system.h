// The system services of the volume checks. Tests replace them.
#pragma once

#include <memory>
#include <string>

#include "common/qlib/qtypes.h"

// Flags and drive types have the values of the Windows interface on every platform.
inline constexpr std::uint32_t SCAN_FS_READ_ONLY_VOLUME = 0x80000;
inline constexpr std::uint32_t SCAN_DRIVE_UNKNOWN = 0;
inline constexpr std::uint32_t SCAN_DRIVE_REMOVABLE = 2;
inline constexpr std::uint32_t SCAN_DRIVE_FIXED = 3;
inline constexpr std::uint32_t SCAN_DRIVE_REMOTE = 4;
inline constexpr std::uint32_t SCAN_DRIVE_OPTICAL = 5;
inline constexpr std::uint32_t SCAN_DRIVE_RAM = 6;
inline constexpr std::uint32_t SCAN_BUS_USB = 7;
inline constexpr std::uint32_t SCAN_BUS_FILE_BACKED = 15;
inline constexpr std::uint32_t SCAN_IO_INCOMPLETE = 996;
inline constexpr std::uint32_t SCAN_IO_PENDING = 997;

// A pending device query. The system writes into its buffer until the query ends, so destroy it only after `wait`
// succeeded or `cancel` returned.
class scan_bus_query {
 public:
  virtual ~scan_bus_query() = default;
  // Starts the query. Returns the last system error: 0, or SCAN_IO_INCOMPLETE and SCAN_IO_PENDING while it runs.
  [[nodiscard]] virtual std::uint32_t start(const std::u16string& device) noexcept = 0;
  // False on a time-out.
  [[nodiscard]] virtual bool wait(std::uint32_t timeout_ms) noexcept = 0;
  // Cancels the query and waits until it has ended. Returns 0 or the system error.
  [[nodiscard]] virtual std::uint32_t cancel() noexcept = 0;
  // The bus type from the answer.
  [[nodiscard]] virtual std::uint32_t bus_type() const noexcept = 0;
};

// Errors are raw system values. Operations may throw std::bad_alloc.
class scan_system {
 public:
  virtual ~scan_system() = default;
  // Sets the calling thread's error mode and returns the previous one.
  virtual std::uint32_t set_error_mode(std::uint32_t mode) noexcept = 0;
  [[nodiscard]] virtual std::uint32_t volume_information(const qchar* root, std::uint32_t& flags,
                                                         std::u16string& file_system) = 0;
  [[nodiscard]] virtual std::uint32_t drive_type(const qchar* root) = 0;
  [[nodiscard]] virtual qerr_t translate(std::uint32_t error) noexcept = 0;
  // The device name of a volume.
  [[nodiscard]] virtual std::u16string device_path(const qchar* root) = 0;
  // A query with its event, or an error when no event could be created.
  [[nodiscard]] virtual std::uint32_t make_bus_query(std::unique_ptr<scan_bus_query>& out) = 0;
};

[[nodiscard]] scan_system& scan_platform_system() noexcept;

// Replaces the system services (null: the platform's again). For tests; not for concurrent use.
void scan_set_system(scan_system* system) noexcept;
