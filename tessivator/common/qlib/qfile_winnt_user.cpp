// Open files of the local disk on Windows.
#include "common/qlib/qfile_winnt_user.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>

#include "common/qlib/qerr.h"

namespace {

qsys_status last_status() noexcept { return qfile_status_of(GetLastError()); }

// Copies out of a mapping through the kernel: a page whose storage fails is an error here, not a fault in the host.
qsys_status copy_mapped(const void* view, std::byte* destination, std::size_t length, std::size_t& done) noexcept {
  SIZE_T copied = 0;
  if (ReadProcessMemory(GetCurrentProcess(), view, destination, length, &copied) == FALSE || copied != length) {
    return {QERR_BAD_ADDRESS, qsys_condition::none};
  }
  done = length;
  return {};
}

qfile_time time_of(const LARGE_INTEGER& time) noexcept {
  constexpr std::int64_t units_a_second = 10000000;
  constexpr std::int64_t seconds_1601_to_1970 = 11644473600;
  if (time.QuadPart <= 0) return {};
  const auto nanoseconds = static_cast<std::uint32_t>(time.QuadPart % units_a_second * 100);
  return {time.QuadPart / units_a_second - seconds_1601_to_1970, nanoseconds};
}

// The file's index is the number that listings give, too. All ones is what a file system without numbers answers.
qsys_status stamp_of(HANDLE file, qfile_stamp& out) noexcept {
  BY_HANDLE_FILE_INFORMATION about{};
  FILE_BASIC_INFO times{};
  if (GetFileInformationByHandle(file, &about) == FALSE) return last_status();
  if (GetFileInformationByHandleEx(file, FileBasicInfo, &times, sizeof times) == FALSE) return last_status();
  const std::uint64_t size_high = about.nFileSizeHigh;
  const std::uint64_t index_high = about.nFileIndexHigh;
  const std::uint64_t number = index_high << 32U | about.nFileIndexLow;
  constexpr std::uint64_t none = std::numeric_limits<std::uint64_t>::max();
  out.size = size_high << 32U | about.nFileSizeLow;
  out.number = number == none ? 0 : number;
  out.modified = time_of(times.LastWriteTime);
  out.changed = time_of(times.ChangeTime);
  return {};
}

struct unmap_view {
  void operator()(void* view) const noexcept { UnmapViewOfFile(view); }
};

class winnt_file final : public qfile_positioned {
 public:
  winnt_file(qsys_handle&& handle, std::uint32_t flags) noexcept
      : qfile_positioned((flags & QFILE_WRITE) == 0), handle_(std::move(handle)), flags_(flags) {}

  qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    constexpr std::uint64_t at_end = std::numeric_limits<std::uint64_t>::max();
    const bool append = (flags_ & QFILE_APPEND) != 0;
    DWORD put = 0;
    OVERLAPPED at = offset_of(append ? at_end : position_);
    if (WriteFile(handle_.get(), buffer, size, &put, &at) == FALSE) return last_status();
    done = put;
    position_ += put;
    return append ? this->size(position_) : qsys_status{};
  }

  qsys_status size(std::uint64_t& bytes) noexcept override {
    const bool is_reader = (flags_ & QFILE_WRITE) == 0;
    LARGE_INTEGER found{};
    if (!is_reader || !known_size_) {
      if (GetFileSizeEx(handle_.get(), &found) == FALSE) return last_status();
      known_size_ = static_cast<std::uint64_t>(found.QuadPart);
    }
    bytes = *known_size_;
    return {};
  }

  qsys_status truncate(std::uint64_t bytes) noexcept override {
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(bytes);
    if (SetFileInformationByHandle(handle_.get(), FileEndOfFileInfo, &end, sizeof end) == FALSE) return last_status();
    position_ = bytes;
    return {};
  }

  qsys_status info(qfile_info& out) noexcept override { return qfile_winnt_info(handle_.get(), out); }

  qsys_status stamp(qfile_stamp& out) noexcept override { return stamp_of(handle_.get(), out); }

  // Through a mapping, as images are looked at here.
  qsys_status read_start(std::byte* destination, std::size_t wanted, std::size_t& done) noexcept override {
    done = 0;
    const qsys_handle mapping(CreateFileMappingW(handle_.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (!mapping.valid()) return last_status();
    const std::unique_ptr<void, unmap_view> mapped(MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, wanted));
    if (!mapped) return last_status();
    return copy_mapped(mapped.get(), destination, wanted, done);
  }

  qsys_status flush() noexcept override {
    return FlushFileBuffers(handle_.get()) != FALSE ? qsys_status{} : last_status();
  }

 private:
  qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    DWORD got = 0;
    OVERLAPPED at = offset_of(offset);
    if (ReadFile(handle_.get(), buffer, size, &got, &at) == FALSE) {
      const DWORD error = GetLastError();
      if (error != ERROR_HANDLE_EOF) return qfile_status_of(error);
      got = 0;
    }
    done = got;
    return {};
  }

  static OVERLAPPED offset_of(std::uint64_t position) noexcept {
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(position);
    at.OffsetHigh = static_cast<DWORD>(position >> 32U);
    return at;
  }

  qsys_handle handle_;
  std::uint32_t flags_;
  std::optional<std::uint64_t> known_size_;
};

DWORD access_of(std::uint32_t flags) noexcept {
  DWORD access = 0;
  if ((flags & QFILE_READ) != 0) access |= GENERIC_READ;
  if ((flags & QFILE_WRITE) == 0) return access;
  if ((flags & QFILE_APPEND) == 0) return access | GENERIC_WRITE;
  return access | (FILE_GENERIC_WRITE & ~static_cast<DWORD>(FILE_WRITE_DATA));
}

DWORD disposition_of(std::uint32_t flags) noexcept {
  const bool truncate = (flags & QFILE_TRUNCATE) != 0;
  if ((flags & QFILE_CREATE) != 0) return truncate ? CREATE_ALWAYS : OPEN_ALWAYS;
  return truncate ? TRUNCATE_EXISTING : OPEN_EXISTING;
}

qsys_status create(const qchar* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes,
                   std::uint32_t flags, std::unique_ptr<qfile_object>& out) {
  const std::wstring name = qsys_extended_path(path);
  qsys_handle handle(CreateFileW(name.c_str(), access, share, nullptr, disposition, attributes, nullptr));
  if (!handle.valid()) return last_status();
  // A name can lead to a console or pipe ("CON", "\\.\pipe\..."), which is no file and could block for ever.
  if (GetFileType(handle.get()) != FILE_TYPE_DISK) return qfile_status_of(ERROR_BAD_UNIT);
  FILE_ATTRIBUTE_TAG_INFO about{};
  if ((flags & QFILE_NO_FOLLOW) != 0 &&
      GetFileInformationByHandleEx(handle.get(), FileAttributeTagInfo, &about, sizeof(about)) != FALSE &&
      (about.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    return {QERR_LINKS};
  }
  out = std::make_unique<winnt_file>(std::move(handle), flags);
  return {};
}

std::int64_t local_time_of(const FILETIME& time) noexcept {
  FILETIME local{};
  if (FileTimeToLocalFileTime(&time, &local) == FALSE) local = time;
  const std::uint64_t high = local.dwHighDateTime;
  return static_cast<std::int64_t>(high << 32U | local.dwLowDateTime);
}

}  // namespace

qsys_status qfile_winnt_open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) {
  constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  DWORD attributes = FILE_ATTRIBUTE_NORMAL;
  if ((flags & QFILE_UNBUFFERED) != 0) attributes |= FILE_FLAG_NO_BUFFERING;
  if ((flags & QFILE_NO_FOLLOW) != 0) attributes |= FILE_FLAG_OPEN_REPARSE_POINT;
  if ((flags & QFILE_WRITE) == 0) attributes |= FILE_FLAG_BACKUP_SEMANTICS;  // directories open, too
  return create(path, access_of(flags), (flags & QFILE_EXCLUSIVE) != 0 ? 0 : share_all, disposition_of(flags),
                attributes, flags, out);
}

qsys_status qfile_winnt_create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) {
  return create(path, GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, QFILE_WRITE,
                out);
}

qsys_status qfile_winnt_info(HANDLE file, qfile_info& out) noexcept {
  BY_HANDLE_FILE_INFORMATION about{};
  if (GetFileInformationByHandle(file, &about) == FALSE) return last_status();
  const std::uint64_t high = about.nFileSizeHigh;
  out.size = high << 32U | about.nFileSizeLow;
  out.creation_time = local_time_of(about.ftCreationTime);
  out.last_write_time = local_time_of(about.ftLastWriteTime);
  return {};
}
