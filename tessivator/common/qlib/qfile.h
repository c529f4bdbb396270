// Files by wide path. Every path goes to one of the file providers (qfile_provider.h): the local disk, or on Linux a
// share for a path with two leading backslashes; callers never know which.
//
// Null required arguments give QERR_ARG1, QERR_ARG2, QERR_ARG3 by position; system failures come translated (qerr.h).
#pragma once

#include "common/qlib/qtypes.h"

// An open file. Owned by whoever opened it; used by one thread at a time.
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
inline constexpr std::uint32_t QFILE_NO_FOLLOW = 128;  // a link at the last component is QERR_LINKS; local disks only

inline constexpr std::uint32_t QFILE_FROM_START = 0;
inline constexpr std::uint32_t QFILE_FROM_CURRENT = 1;
inline constexpr std::uint32_t QFILE_FROM_END = 2;

// Sizes in bytes; times are local, in 100 ns since 1601.
struct qfile_info {
  std::uint64_t size;
  std::int64_t creation_time;
  std::int64_t last_write_time;
};

// Seconds and nanoseconds since 1970, UTC; both 0 where the storage does not tell.
struct qfile_time {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
  bool operator==(const qfile_time&) const noexcept = default;
};

// What tells a file, and one state of it, from others, as far as its storage knows.
struct qfile_stamp {
  std::uint64_t size = 0;
  std::uint64_t number = 0;  // the file's on its volume (inode, file index); 0 for none
  qfile_time modified;       // when its bytes were last written
  qfile_time changed;        // when bytes or attributes were; no program sets it
  bool operator==(const qfile_stamp&) const noexcept = default;
};

// A file that is open for reading only keeps its first 256 KiB from the first read of them on: what is asked of these
// bytes later comes from the same read, whatever has become of the file.

// Opens `path`. At least one of READ and WRITE; APPEND, CREATE and TRUNCATE need WRITE; APPEND excludes TRUNCATE and
// UNBUFFERED: else QERR_ARG3. With CREATE missing parent directories are created. Without WRITE a directory opens too.
[[nodiscard]] qerr_t qfile_open(qfile_t* handle, const qchar* path, std::uint32_t flags) noexcept;
[[nodiscard]] qerr_t qfile_close(qfile_t handle) noexcept;

// One read or write call; fewer bytes than asked for is success (0 bytes: end of file).
[[nodiscard]] qerr_t qfile_read(qfile_t handle, void* buffer, std::uint32_t size, std::uint32_t* bytes_read) noexcept;
// The bytes from the position on that the open file keeps in memory, borrowed until it is closed; the position stays.
// Nothing where it keeps none, which says nothing about the file's end.
[[nodiscard]] Bytes qfile_held(qfile_t handle) noexcept;
// The code of the first read of this handle that failed, QERR_OK when all went well: digests end silently where a read
// fails.
[[nodiscard]] qerr_t qfile_failure(qfile_t handle) noexcept;
[[nodiscard]] qerr_t qfile_write(qfile_t handle, const void* buffer, std::uint32_t size,
                                 std::uint32_t* bytes_written) noexcept;
// `origin` is one of QFILE_FROM_*; `new_position` may be null. Only from the end is the file asked, for its size.
[[nodiscard]] qerr_t qfile_seek(qfile_t handle, std::int64_t offset, std::uint32_t origin,
                                std::uint64_t* new_position) noexcept;
// In bytes. A file open for reading only keeps the size that it had when it was opened or first asked for.
[[nodiscard]] qerr_t qfile_size(qfile_t handle, std::uint64_t* size) noexcept;
// `size` may be null: then the file is only opened.
[[nodiscard]] qerr_t qfile_size_by_name(const qchar* path, std::uint64_t* size) noexcept;
// Sets the file's size and the position to `size`.
[[nodiscard]] qerr_t qfile_truncate(qfile_t handle, std::uint64_t size) noexcept;
// Size and times of an open file, or of a path without opening it for reading.
[[nodiscard]] qerr_t qfile_get_info(qfile_t handle, qfile_info* info) noexcept;
[[nodiscard]] qerr_t qfile_get_info_by_name(const qchar* path, qfile_info* info) noexcept;

// Of an open file, as it is now; on a share as it was when it was opened, without its changed time.
// QERR_NOT_IMPLEMENTED where the storage has none.
[[nodiscard]] qerr_t qfile_get_stamp(qfile_t handle, qfile_stamp* stamp) noexcept;

// A copy of the first `length` bytes (never more than the file holds), valid until qfile_unmap; the names are given,
// the caller sees no mapping. On Windows the bytes come from a mapping through a fault-safe copy: a page that cannot be
// read gives QERR_BAD_ADDRESS. Bytes that a file lost since its size was taken read as zero. A length or file of 0
// bytes gives QERR_INVALID. `mapped`, which may be null, tells how many bytes the view has: fewer than asked for when
// the file has shrunk since the caller looked.
[[nodiscard]] qerr_t qfile_map(qfile_t handle, std::uint64_t length, const std::byte** view,
                               std::uint64_t* mapped = nullptr) noexcept;
[[nodiscard]] qerr_t qfile_unmap(const std::byte* view) noexcept;

// Replaces an existing target; when the target's directories are missing and the source exists they are created.
[[nodiscard]] qerr_t qfile_rename(const qchar* source, const qchar* target) noexcept;
// Clears read-only and deletes.
[[nodiscard]] qerr_t qfile_delete(const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_rmdir(const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_mkdir(const qchar* path) noexcept;
// Puts a file of these bytes at `path` in one step, as qfile_replacement.h describes; `flush` other than 0 asks for the
// flush of its commit. On any failure `path` is untouched. QERR_ARG1, QERR_ARG2, or the file's code.
[[nodiscard]] qerr_t qfile_write_whole(const qchar* path, const void* bytes, std::size_t size,
                                       std::uint32_t flush) noexcept;
// Copies bytes; `fail_if_exists` other than 0 refuses an existing target.
[[nodiscard]] qerr_t qfile_copy(const qchar* source, const qchar* target, std::uint32_t fail_if_exists) noexcept;
// Creates every missing directory above the last separator of `path`.
[[nodiscard]] qerr_t qfile_mkdir_parents(const qchar* path) noexcept;
// Asks the file system to compress the file (NTFS); success without effect elsewhere.
[[nodiscard]] qerr_t qfile_compress(const qchar* path) noexcept;
// Absolute form of `path`. `size_in_out` counts units with the terminator; a buffer that is too small (or null) gives
// QERR_BUFFER_SMALL with the needed size; on success it becomes the units used.
[[nodiscard]] qerr_t qfile_full_path(const qchar* path, qchar* buffer, std::uint32_t* size_in_out) noexcept;
// True when the path's attributes can be read.
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
