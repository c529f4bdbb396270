// System services of the volume checks, from the mount table, statvfs and sysfs.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys_posix_user.h"
#include "scan/scan_system.h"
#include "utl/utl_mounts_posix_user.h"

namespace {

// Mapped devices (encryption, volume groups) are stacked; no real stack is this deep.
constexpr int deepest_stack = 8;

// A share is remote whatever its server has it on, so the server is not asked.
constexpr const qchar* share_file_system = u"smb3";

struct file_system_kind {
  std::string_view type;
  std::uint32_t drive;
};

// What the file system name alone tells. Other file systems are as their block device.
constexpr file_system_kind known_kinds[] = {
    {"nfs", SCAN_DRIVE_REMOTE},   {"nfs4", SCAN_DRIVE_REMOTE},   {"cifs", SCAN_DRIVE_REMOTE},
    {"smb3", SCAN_DRIVE_REMOTE},  {"smbfs", SCAN_DRIVE_REMOTE},  {"iso9660", SCAN_DRIVE_OPTICAL},
    {"udf", SCAN_DRIVE_OPTICAL},  {"tmpfs", SCAN_DRIVE_RAM},     {"ramfs", SCAN_DRIVE_RAM},
    {"devtmpfs", SCAN_DRIVE_RAM}, {"overlay", SCAN_DRIVE_FIXED}, {"btrfs", SCAN_DRIVE_FIXED},
    {"zfs", SCAN_DRIVE_FIXED},    {"ubifs", SCAN_DRIVE_FIXED},
};

// The block device of a mount: by the device number of the file system, or by its source where the file system has an
// artificial number (btrfs).
bool block_device_of(const utl_mount& mount, dev_t& device) noexcept {
  struct stat about {};
  if (::stat(mount.point.c_str(), &about) == 0 && major(about.st_dev) != 0) {
    device = about.st_dev;
    return true;
  }
  if (mount.source.empty() || mount.source[0] != '/') return false;
  if (::stat(mount.source.c_str(), &about) != 0 || !S_ISBLK(about.st_mode)) return false;
  device = about.st_rdev;
  return true;
}

// The folder of the device below /sys/devices; its path names the buses on the way. Empty if there is none.
std::string sysfs_folder(const std::string& link) {
  const std::unique_ptr<char, FreeWith<std::free>> real(::realpath(link.c_str(), nullptr));
  return real ? std::string(real.get()) : std::string();
}

std::string sysfs_folder(dev_t device) {
  return sysfs_folder("/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device)));
}

// The folder of a partition lacks the file; the folder above is that of the disk.
bool is_marked_removable(const std::string& folder) {
  for (const char* const name : {"/removable", "/../removable"}) {
    const qsys_descriptor file(::open((folder + name).c_str(), O_RDONLY | O_CLOEXEC));
    char mark = 0;
    if (file.valid()) return qsys_retry([&] { return ::read(file.get(), &mark, 1); }) == 1 && mark == '1';
  }
  return false;
}

struct close_directory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

std::uint32_t bus_of_folder(const std::string& folder, int depth) {
  if (folder.find("/usb") != std::string::npos) return SCAN_BUS_USB;
  if (folder.find("/virtual/block/loop") != std::string::npos) return SCAN_BUS_FILE_BACKED;
  const std::unique_ptr<DIR, close_directory> below(::opendir((folder + "/slaves").c_str()));
  if (!below || depth == deepest_stack) return 0;
  while (const dirent* const entry = ::readdir(below.get())) {  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry->d_name[0] == '.') continue;
    const std::string next = sysfs_folder(folder + "/slaves/" + entry->d_name);
    const std::uint32_t bus = next.empty() ? 0 : bus_of_folder(next, depth + 1);
    if (bus != 0) return bus;
  }
  return 0;
}

// sysfs answers at once; no waiting.
class posix_bus_query final : public scan_bus_query {
 public:
  std::uint32_t start(const std::u16string& device) noexcept override try {
    utl_mount mount;
    const int error = utl_find_mount(device.c_str(), mount);
    if (error != 0) return static_cast<std::uint32_t>(error);
    dev_t number = 0;
    const std::string folder = block_device_of(mount, number) ? sysfs_folder(number) : std::string();
    bus_ = folder.empty() ? 0 : bus_of_folder(folder, 0);
    return 0;
  } catch (...) {
    return ENOMEM;
  }
  bool wait(std::uint32_t timeout_ms) noexcept override {
    (void)timeout_ms;
    return true;
  }
  std::uint32_t cancel() noexcept override { return 0; }
  [[nodiscard]] std::uint32_t bus_type() const noexcept override { return bus_; }

 private:
  std::uint32_t bus_ = 0;
};

class posix_system final : public scan_system {
 public:
  // There are no dialogs to suppress.
  std::uint32_t set_error_mode(std::uint32_t mode) noexcept override { return mode; }

  std::uint32_t volume_information(const qchar* root, std::uint32_t& flags, std::u16string& file_system) override {
    if (qpath_is_unc(root)) {
      flags = 0;
      file_system = share_file_system;
      return 0;
    }
    utl_mount mount;
    const int error = utl_find_mount(root, mount);
    if (error != 0) return static_cast<std::uint32_t>(error);
    struct statvfs about {};
    if (::statvfs(mount.point.c_str(), &about) != 0) return static_cast<std::uint32_t>(errno);
    flags = (about.f_flag & ST_RDONLY) != 0 ? SCAN_FS_READ_ONLY_VOLUME : 0;
    file_system = qstr_name_from_bytes(mount.type);
    return 0;
  }

  std::uint32_t drive_type(const qchar* root) override {
    if (qpath_is_unc(root)) return SCAN_DRIVE_REMOTE;
    utl_mount mount;
    if (utl_find_mount(root, mount) != 0) return SCAN_DRIVE_UNKNOWN;
    const auto* const known = std::find_if(std::begin(known_kinds), std::end(known_kinds),
                                           [&](const file_system_kind& kind) { return kind.type == mount.type; });
    if (known != std::end(known_kinds) && known->drive != SCAN_DRIVE_FIXED) return known->drive;
    dev_t device = 0;
    if (block_device_of(mount, device)) {
      return is_marked_removable(sysfs_folder(device)) ? SCAN_DRIVE_REMOVABLE : SCAN_DRIVE_FIXED;
    }
    return known != std::end(known_kinds) ? known->drive : SCAN_DRIVE_UNKNOWN;
  }

  qerr_t translate(std::uint32_t error) noexcept override { return qsys_code_of(static_cast<int>(error)); }

  std::u16string device_path(const qchar* root) override { return root; }

  std::uint32_t make_bus_query(std::unique_ptr<scan_bus_query>& out) override {
    out = std::make_unique<posix_bus_query>();
    return 0;
  }
};

}  // namespace

scan_system& scan_platform_system() noexcept {
  static posix_system system;
  return system;
}
