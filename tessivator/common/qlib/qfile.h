// Files by wide path. Each path is served by one of the file providers (qfile_provider.h): the local disk, or on Linux
// a share for a path that starts with two backslashes. Callers need not know which.
//
// A null required argument gives QERR_ARG1, QERR_ARG2, QERR_ARG3 by position; system errors are translated (qerr.h).
#pragma once

#include "common/qlib/qtypes.h"

// An open file. The caller that opened it owns it; one thread at a time.
class qfile_object;
using qfile_t = qfile_object*;
inline constexpr qfile_t QFILE_INVALID = nullptr;

inline constexpr std::uint32_t QFILE_APPEND = 1;
inline constexpr std::uint32_t QFILE_CREATE = 2;
inline constexpr std::uint32_t QFILE_READ = 4;
inline constexpr std::uint32_t QFILE_WRITE = 8;
inline constexpr std::uint32_t QFILE_TRUNCATE = 16;
inline constexpr std::uint32_t QFILE_UNBUFFERED = 32;
inline constexpr std::uint32_t QFILE_EXCLUSIVE = 64;
inline constexpr std::uint32_t QFILE_NO_FOLLOW = 128;  // QERR_LINKS if the last component is a link; local disks only

inline constexpr std::uint32_t QFILE_FROM_START = 0;
inline constexpr std::uint32_t QFILE_FROM_CURRENT = 1;
inline constexpr std::uint32_t QFILE_FROM_END = 2;

// Sizes in bytes; times are local, in 100 ns since 1601.
struct qfile_info {
  std::uint64_t size;
  std::int64_t creation_time;
  std::int64_t last_write_time;
};

// Seconds and nanoseconds since 1970, UTC; both 0 if the storage does not know.
struct qfile_time {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
  bool operator==(const qfile_time&) const noexcept = default;
};

// Identifies a file and its state, as far as the storage knows them.
struct qfile_stamp {
  std::uint64_t size = 0;
  std::uint64_t number = 0;  // inode or file index; 0 for none
  qfile_time modified;       // when its bytes were last written
  qfile_time changed;        // last change of bytes or attributes; programs cannot set it
  bool operator==(const qfile_stamp&) const noexcept = default;
};

// A file opened for reading only keeps its first 256 KiB in memory from the first read of them. Later reads of these
// bytes return what was read then, even if the file has changed.

// Opens `path`. READ or WRITE is required; APPEND, CREATE and TRUNCATE need WRITE; APPEND excludes TRUNCATE and
// UNBUFFERED: else QERR_ARG3. CREATE also creates missing parent directories. Without WRITE, directories can be opened
// too.
[[nodiscard]] qerr_t qfile_open(qfile_t* handle, const qchar* path, std::uint32_t flags) noexcept;
[[nodiscard]] qerr_t qfile_close(qfile_t handle) noexcept;

// One read or write call. Success may transfer fewer bytes than asked for; 0 bytes read means end of file.
[[nodiscard]] qerr_t qfile_read(qfile_t handle, void* buffer, std::uint32_t size, std::uint32_t* bytes_read) noexcept;
// The bytes from the current position that the open file keeps in memory, valid until it is closed; the position does
// not change. Empty if there are none, which does not mean end of file.
[[nodiscard]] Bytes qfile_held(qfile_t handle) noexcept;
// The code of the first failed read of this handle, or QERR_OK. Digests stop silently at a failed read: ask here.
[[nodiscard]] qerr_t qfile_failure(qfile_t handle) noexcept;
[[nodiscard]] qerr_t qfile_write(qfile_t handle, const void* buffer, std::uint32_t size,
                                 std::uint32_t* bytes_written) noexcept;
// `origin` is one of QFILE_FROM_*; `new_position` may be null. Only a seek from the end asks for the file size.
[[nodiscard]] qerr_t qfile_seek(qfile_t handle, std::int64_t offset, std::uint32_t origin,
                                std::uint64_t* new_position) noexcept;
// In bytes. A file open for reading only keeps the size that it had when it was opened or first asked for.
[[nodiscard]] qerr_t qfile_size(qfile_t handle, std::uint64_t* size) noexcept;
// `size` may be null: then this only tests whether the file opens.
[[nodiscard]] qerr_t qfile_size_by_name(const qchar* path, std::uint64_t* size) noexcept;
// Sets the file's size and the position to `size`.
[[nodiscard]] qerr_t qfile_truncate(qfile_t handle, std::uint64_t size) noexcept;
// Size and times of an open file, or of a path without opening the file for reading.
[[nodiscard]] qerr_t qfile_get_info(qfile_t handle, qfile_info* info) noexcept;
[[nodiscard]] qerr_t qfile_get_info_by_name(const qchar* path, qfile_info* info) noexcept;

// The state of an open file as it is now; on a share as it was when opened, without the changed time.
// QERR_NOT_IMPLEMENTED if the storage has none.
[[nodiscard]] qerr_t qfile_get_stamp(qfile_t handle, qfile_stamp* stamp) noexcept;

// Copies the first `length` bytes, at most the whole file; free the copy with qfile_unmap. In spite of the names there
// is no mapping for the caller. On Windows the bytes are copied safely out of a mapping: a page that cannot be read
// gives QERR_BAD_ADDRESS. Bytes that the file has lost since its size was taken are zero. A length or file of 0 bytes
// gives QERR_INVALID. `mapped` (may be null) gets the size of the copy, smaller than `length` if the file has shrunk.
[[nodiscard]] qerr_t qfile_map(qfile_t handle, std::uint64_t length, const std::byte** view,
                               std::uint64_t* mapped = nullptr) noexcept;
[[nodiscard]] qerr_t qfile_unmap(const std::byte* view) noexcept;

// Replaces an existing target. Creates missing directories of the target if the source exists.
[[nodiscard]] qerr_t qfile_rename(const qchar* source, const qchar* target) noexcept;
// Clears the read-only attribute and deletes.
[[nodiscard]] qerr_t qfile_delete(const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_rmdir(const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_mkdir(const qchar* path) noexcept;
// Writes a file with these bytes to `path` in one step (see qfile_replacement.h); `flush` other than 0 flushes it to
// the device. On failure `path` is unchanged. QERR_ARG1, QERR_ARG2, or the code of the file.
[[nodiscard]] qerr_t qfile_write_whole(const qchar* path, const void* bytes, std::size_t size,
                                       std::uint32_t flush) noexcept;
// Copies the bytes; `fail_if_exists` other than 0 refuses an existing target.
[[nodiscard]] qerr_t qfile_copy(const qchar* source, const qchar* target, std::uint32_t fail_if_exists) noexcept;
// Creates every missing directory above the last separator of `path`.
[[nodiscard]] qerr_t qfile_mkdir_parents(const qchar* path) noexcept;
// Asks the file system to compress the file (NTFS); elsewhere does nothing and succeeds.
[[nodiscard]] qerr_t qfile_compress(const qchar* path) noexcept;
// The absolute form of `path`. `size_in_out` counts units including the terminator. A null or small buffer gives
// QERR_BUFFER_SMALL and the size needed; on success it is the size used.
[[nodiscard]] qerr_t qfile_full_path(const qchar* path, qchar* buffer, std::uint32_t* size_in_out) noexcept;
// True when the attributes of the path can be read.
[[nodiscard]] bool qfile_exists(const qchar* path) noexcept;

// Is told of reads, for a program that shows how far it is.
class qfile_watcher {
 public:
  // After a read of that many bytes by qfile_read, on the reading thread.
  virtual void on_read(std::uint32_t bytes) noexcept = 0;

 protected:
  ~qfile_watcher() = default;
};

// One watcher for the whole process, borrowed until another one or null takes its place; while files are read it must
// stay.
void qfile_watch_reads(qfile_watcher* watcher) noexcept;

// Owner of an open file.
class QfileOwner {
 public:
  QfileOwner() noexcept = default;
  explicit QfileOwner(qfile_t handle) noexcept : handle_(handle) {}
  QfileOwner(const QfileOwner&) = delete;
  QfileOwner& operator=(const QfileOwner&) = delete;
  ~QfileOwner() { reset(); }
  [[nodiscard]] qfile_t get() const noexcept { return handle_; }
  [[nodiscard]] qfile_t* out() noexcept {
    reset();
    return &handle_;
  }
  [[nodiscard]] qfile_t release() noexcept {
    const qfile_t handle = handle_;
    handle_ = QFILE_INVALID;
    return handle;
  }
  void reset() noexcept {
    if (handle_ != QFILE_INVALID) (void)qfile_close(handle_);
    handle_ = QFILE_INVALID;
  }

 private:
  qfile_t handle_ = QFILE_INVALID;
};
