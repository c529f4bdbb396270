// Names on Windows, and the provider of all its files.
#include <windows.h>
// Needs the types of the line above.
#include <winioctl.h>

#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_winnt_user.h"

namespace {

qsys_status status_of(BOOL succeeded) noexcept {
  return succeeded != FALSE ? qsys_status{} : qfile_status_of(GetLastError());
}

// Opened for its attributes only: needs no read access, and links are followed.
qsys_status open_for_attributes(const std::wstring& name, qsys_handle& out) noexcept {
  constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  qsys_handle opened(CreateFileW(name.c_str(), FILE_READ_ATTRIBUTES, share_all, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!opened.valid()) return qfile_status_of(GetLastError());
  out = std::move(opened);
  return {};
}

qsys_status identity_of(HANDLE directory, qfile_identity& out) noexcept {
  FILE_ID_INFO id{};
  if (GetFileInformationByHandleEx(directory, FileIdInfo, &id, sizeof id) != FALSE) {
    out = {id.VolumeSerialNumber, 0, 0};
    for (int byte = 0; byte < 8; ++byte) {
      out.index_low |= std::uint64_t{id.FileId.Identifier[byte]} << (8 * byte);
      out.index_high |= std::uint64_t{id.FileId.Identifier[8 + byte]} << (8 * byte);
    }
    return {};
  }
  BY_HANDLE_FILE_INFORMATION about{};  // file systems without 128-bit numbers
  const qsys_status status = status_of(GetFileInformationByHandle(directory, &about));
  if (status.ok()) {
    out = {about.dwVolumeSerialNumber, std::uint64_t{about.nFileIndexHigh} << 32U | about.nFileIndexLow, 0};
  }
  return status;
}

class local_provider final : public qfile_provider {
 public:
  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override {
    return qfile_winnt_open(path, flags, out);
  }
  qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return qfile_winnt_create_exclusive(path, out);
  }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    return qfile_winnt_search(pattern, out);
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    return qfile_winnt_list(wanted.path.data(), out);
  }
  qsys_status exists(const qchar* path) override {
    return status_of(GetFileAttributesW(qsys_extended_path(path).c_str()) != INVALID_FILE_ATTRIBUTES);
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    qsys_handle file;
    const qsys_status status = open_for_attributes(qsys_extended_path(path), file);
    return status.ok() ? qfile_winnt_info(file.get(), out) : status;
  }
  qsys_status rename(const qchar* source, const qchar* target) override {
    const std::wstring to = qsys_extended_path(target);
    return status_of(MoveFileExW(qsys_extended_path(source).c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
  }
  qsys_status remove(const qchar* path) override {
    const std::wstring name = qsys_extended_path(path);
    (void)SetFileAttributesW(name.c_str(), FILE_ATTRIBUTE_NORMAL);  // clears read-only
    return status_of(DeleteFileW(name.c_str()));
  }
  qsys_status make_directory(const qchar* path) override {
    return status_of(CreateDirectoryW(qsys_extended_path(path).c_str(), nullptr));
  }
  qsys_status remove_directory(const qchar* path) override {
    return status_of(RemoveDirectoryW(qsys_extended_path(path).c_str()));
  }
  qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) override {
    const std::wstring to = qsys_extended_path(target);
    return status_of(CopyFileW(qsys_extended_path(source).c_str(), to.c_str(), fail_if_exists ? TRUE : FALSE));
  }
  qsys_status compress(const qchar* path) override {
    constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const std::wstring name = qsys_extended_path(path);
    const qsys_handle file(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, share_all, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.valid()) return qfile_status_of(GetLastError());
    USHORT format = COMPRESSION_FORMAT_DEFAULT;
    DWORD returned = 0;
    return status_of(
        DeviceIoControl(file.get(), FSCTL_SET_COMPRESSION, &format, sizeof format, nullptr, 0, &returned, nullptr));
  }
  qsys_status full_path(const qchar* path, std::u16string& out) override {
    std::wstring full;
    if (!qsys_full_path(path, full)) return qfile_status_of(GetLastError());
    out = qsys_units(full);
    return {};
  }
};

}  // namespace

qsys_status qfile_status_of(DWORD error) noexcept {
  qsys_status status{qerr_from_win32(error), qsys_condition::none};
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      status.condition = qsys_condition::not_found;
      break;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
      status.condition = qsys_condition::already_exists;
      break;
    case ERROR_ACCESS_DENIED:  // also from a rename onto an open file
    case ERROR_SHARING_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
      status.condition = qsys_condition::held;
      break;
    case ERROR_NO_MORE_FILES:
      status = {QERR_END, qsys_condition::end_of_directory};
      break;
    case ERROR_SUCCESS:  // the call failed without a reason
      status.code = QERR_IO;
      break;
    default:
      break;
  }
  return status;
}

qsys_status qfile_winnt_identity(const std::wstring& directory, qfile_identity& out) noexcept {
  qsys_handle opened;
  const qsys_status status = open_for_attributes(directory, opened);
  return status.ok() ? identity_of(opened.get(), out) : status;
}

qfile_provider& qfile_local_provider() noexcept {
  static local_provider provider;
  return provider;
}

// The redirector of the system serves shares.
qfile_provider& qfile_platform_provider_for(const qchar* path) noexcept {
  (void)path;
  return qfile_local_provider();
}
