#include "scan/scan.h"

#include <algorithm>
#include <new>

#include "cfg/cfg.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qreplaceable.h"
#include "common/qlib/qstr.h"
#include "scan/scan_system.h"
#include "utl/utl_user.h"

static constexpr std::uint32_t module_id = QLOG_SCAN;

namespace {

// No dialogs for critical errors, none for files that cannot be opened.
constexpr std::uint32_t quiet_error_mode = 0x8001;
constexpr std::uint64_t ask_for_bus = 0x2000;  // bit of CustomerConfig
constexpr std::uint32_t bus_timeout_ms = 1000;

constexpr const qchar* supported_file_systems[] = {u"NTFS", u"REFS"};

qreplaceable<scan_system> replaceable_system;

scan_system& the_system() noexcept { return replaceable_system.get(scan_platform_system()); }

class quiet_errors {
 public:
  explicit quiet_errors(scan_system& system) noexcept
      : system_(system), before_(system.set_error_mode(quiet_error_mode)) {}
  quiet_errors(const quiet_errors&) = delete;
  quiet_errors& operator=(const quiet_errors&) = delete;
  ~quiet_errors() { (void)system_.set_error_mode(before_); }

 private:
  scan_system& system_;
  std::uint32_t before_;
};

// The attribute bit of a drive type; 0 for an unsupported type.
std::uint32_t attribute_of_drive(std::uint32_t type, const qchar* root) noexcept {
  switch (type) {
    case SCAN_DRIVE_REMOVABLE:
      return SCAN_VOL_REMOVABLE;
    case SCAN_DRIVE_FIXED:
      return swin_check_if_device_is_removable(root) == 1 ? SCAN_VOL_REMOVABLE : SCAN_VOL_FIXED;
    case SCAN_DRIVE_REMOTE:
      return SCAN_VOL_REMOTE;
    case SCAN_DRIVE_OPTICAL:
      return SCAN_VOL_OPTICAL;
    default:
      return 0;
  }
}

// Sets what does not depend on the drive type.
qerr_t fill(scan_vol_attributes& found, const qchar* path, const qchar* root, std::uint32_t flags,
            const std::u16string& file_system) {
  found = {};
  file_system.copy(found.file_system, SCAN_FS_NAME_UNITS);
  if ((flags & SCAN_FS_READ_ONLY_VOLUME) != 0) found.attributes |= SCAN_VOL_READ_ONLY;
  const std::uint32_t type = the_system().drive_type(root);
  const std::uint32_t kind = attribute_of_drive(type, root);
  if (kind == 0) {
    QLOG(QLOG_ERROR, u"Unsupported drive type %d for '%s'\n", type, root);
    return QERR_DRIVE_TYPE;
  }
  found.attributes |= kind;
  QLOG(QLOG_INFO, u"vol_attrib = %d\n", found.attributes);
  constexpr std::uint32_t decisive = SCAN_VOL_FIXED | SCAN_VOL_READ_ONLY;
  if (scan_is_supported_fs_type(found.file_system) == 1 && (found.attributes & decisive) == SCAN_VOL_FIXED) {
    found.supported = 1;
  } else {
    QLOG(QLOG_INFO, u"\"%s\" is not (or not in) a supported volume.\n", path);
  }
  return QERR_OK;
}

bool ask_bus(scan_bus_query& query, const std::u16string& device, const qchar* root) {
  const std::uint32_t error = query.start(device);
  if (error != 0 && error != SCAN_IO_INCOMPLETE && error != SCAN_IO_PENDING) {
    QLOG(QLOG_ERROR, u"Failed to define bus type for '%s'. err = '%d'", root, error);
    return false;
  }
  if (query.wait(bus_timeout_ms)) return true;
  QLOG(QLOG_ERROR, u"Timeout error for DeviceIoControl request '%s'", root);
  const std::uint32_t status = query.cancel();
  if (status != 0) QLOG(QLOG_ERROR, u"GetOverLappedResult failed with status '%d'", status);
  return false;
}

}  // namespace

void scan_set_system(scan_system* system) noexcept { replaceable_system.replace(system); }

qerr_t scan_get_vol_attributes(const qchar* path, scan_vol_attributes* attributes) noexcept try {
  if (path == nullptr) return QERR_INVALID;
  scan_system& system = the_system();
  const quiet_errors quiet(system);
  qchar* root = nullptr;
  const qerr_t code = utl_get_volume_path_alloc(path, &root);
  const QmemPtr<qchar> root_owner(root);
  if (code != QERR_OK) return code;
  std::uint32_t flags = 0;
  std::u16string file_system;
  const std::uint32_t error = system.volume_information(root, flags, file_system);
  if (error != 0) {
    QLOG(QLOG_INFO, u"Failed to get the information about volume \"%s\". GetLastError %d.\n", root, error);
    return system.translate(error);
  }
  return attributes == nullptr ? QERR_OK : fill(*attributes, path, root, flags, file_system);
} catch (...) {  // only std::bad_alloc
  return QERR_LOW_MEMORY;
}

std::uint32_t scan_is_supported_fs_type(const qchar* file_system) noexcept {
  const std::u16string_view name(file_system != nullptr ? file_system : u"");
  for (const qchar* const supported : supported_file_systems) {
    if (qstr_equal_nocase(name, supported)) return 1;
  }
  QLOG(QLOG_INFO, u"Found unsupported fs type = %s\n", file_system);
  return 0;
}

std::uint32_t swin_check_if_device_is_removable(const qchar* volume_root) noexcept try {
  if ((cfg_CustomerConfig().load(std::memory_order_relaxed) & ask_for_bus) == 0 || volume_root == nullptr) return 0;
  scan_system& system = the_system();
  std::unique_ptr<scan_bus_query> query;
  const std::uint32_t error = system.make_bus_query(query);
  if (error != 0) {
    // The text is misleading, but people search their logs for it.
    QLOG(QLOG_ERROR, u"Timeout error for DeviceIoControl'%d'", error);
    return 0;
  }
  if (!ask_bus(*query, system.device_path(volume_root), volume_root)) return 0;
  const std::uint32_t bus = query->bus_type();
  return bus == SCAN_BUS_USB || bus == SCAN_BUS_FILE_BACKED ? 1 : 0;
} catch (...) {
  return 0;
}
