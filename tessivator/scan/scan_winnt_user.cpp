// System services of the volume checks, from the volume and storage interfaces.
#include "common/qlib/qsys_winnt_user.h"
// Needs the types of windows.h.
#include <winioctl.h>

#include <new>

#include "common/qlib/qerr.h"
#include "scan/scan.h"
#include "scan/scan_system.h"

namespace {

class winnt_bus_query final : public scan_bus_query {
 public:
  explicit winnt_bus_query(qsys_handle&& event) noexcept : event_(std::move(event)) { request_.hEvent = event_.get(); }

  std::uint32_t start(const std::u16string& device) noexcept override {
    device_ = qsys_handle(CreateFileW(qsys_wide(device.c_str()), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (!device_.valid()) return GetLastError();
    query_.PropertyId = StorageDeviceProperty;
    query_.QueryType = PropertyStandardQuery;
    const BOOL done = DeviceIoControl(device_.get(), IOCTL_STORAGE_QUERY_PROPERTY, &query_, sizeof query_, &answer_,
                                      sizeof answer_, nullptr, &request_);
    return done != FALSE ? ERROR_SUCCESS : GetLastError();
  }

  bool wait(std::uint32_t timeout_ms) noexcept override {
    return WaitForSingleObject(event_.get(), timeout_ms) == WAIT_OBJECT_0;
  }

  std::uint32_t cancel() noexcept override {
    CancelIo(device_.get());
    DWORD transferred = 0;
    return GetOverlappedResult(device_.get(), &request_, &transferred, TRUE) != FALSE ? ERROR_SUCCESS : GetLastError();
  }

  [[nodiscard]] std::uint32_t bus_type() const noexcept override { return static_cast<std::uint32_t>(answer_.BusType); }

 private:
  qsys_handle event_;
  qsys_handle device_;
  OVERLAPPED request_{};
  STORAGE_PROPERTY_QUERY query_{};
  STORAGE_DEVICE_DESCRIPTOR answer_{};
};
static_assert(sizeof(STORAGE_DEVICE_DESCRIPTOR) == 40);

class winnt_system final : public scan_system {
 public:
  std::uint32_t set_error_mode(std::uint32_t mode) noexcept override {
    DWORD before = 0;
    (void)SetThreadErrorMode(mode, &before);
    return before;
  }

  std::uint32_t volume_information(const qchar* root, std::uint32_t& flags, std::u16string& file_system) override {
    wchar_t name[SCAN_FS_NAME_UNITS + 1] = {};
    DWORD found = 0;
    if (GetVolumeInformationW(qsys_wide(root), nullptr, 0, nullptr, nullptr, &found, name, SCAN_FS_NAME_UNITS) ==
        FALSE) {
      return GetLastError();
    }
    flags = found;
    file_system = qsys_units(name);
    return ERROR_SUCCESS;
  }

  std::uint32_t drive_type(const qchar* root) override { return GetDriveTypeW(qsys_wide(root)); }

  qerr_t translate(std::uint32_t error) noexcept override { return qerr_from_win32(error); }

  std::u16string device_path(const qchar* root) override {
    std::u16string path = u"\\\\.\\";
    path += root;
    if (path.ends_with(u'\\')) path.pop_back();
    return path;
  }

  std::uint32_t make_bus_query(std::unique_ptr<scan_bus_query>& out) override {
    qsys_handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event.valid()) return GetLastError();
    out = std::make_unique<winnt_bus_query>(std::move(event));
    return ERROR_SUCCESS;
  }
};

}  // namespace

scan_system& scan_platform_system() noexcept {
  static winnt_system system;
  return system;
}
