// Attributes of the volume that holds a path.
#pragma once

#include "common/qlib/qtypes.h"

inline constexpr std::uint32_t SCAN_VOL_READ_ONLY = 1;
inline constexpr std::uint32_t SCAN_VOL_FIXED = 2;
inline constexpr std::uint32_t SCAN_VOL_REMOVABLE = 4;
inline constexpr std::uint32_t SCAN_VOL_OPTICAL = 8;
inline constexpr std::uint32_t SCAN_VOL_REMOTE = 16;

inline constexpr std::size_t SCAN_FS_NAME_UNITS = 260;

struct scan_vol_attributes {
  qchar file_system[SCAN_FS_NAME_UNITS + 1];  // "NTFS", "ext4"; cut when longer
  std::uint32_t attributes;                   // SCAN_VOL_*
  std::uint32_t supported;                    // 1: a writable fixed disk with a file system of the supported table
};

// Fills `attributes`; with null it only tests whether the volume can be queried. QERR_INVALID without a path;
// QERR_DRIVE_TYPE for a volume that is not removable, fixed, remote or optical (a RAM disk); QERR_LOW_MEMORY; else the
// code of a system error. With QERR_DRIVE_TYPE, the file system name and the read-only bit are filled in. During the
// call the system shows no dialog to this thread when a drive has no medium.
[[nodiscard]] qerr_t scan_get_vol_attributes(const qchar* path, scan_vol_attributes* attributes) noexcept;

// 1 when the file system is in the table of supported ones (NTFS, REFS), ignoring case; else 0.
[[nodiscard]] std::uint32_t scan_is_supported_fs_type(const qchar* file_system) noexcept;

// 1 when the device of a volume root is on a USB bus or is a virtual disk in a file. Always 0, without touching the
// device, unless bit 0x2000 of the parameter CustomerConfig is set. Never fails; waits about a second at most.
[[nodiscard]] std::uint32_t swin_check_if_device_is_removable(const qchar* volume_root) noexcept;
