// Open files of the local disk on POSIX systems.
#include "common/qlib/qfile_posix_user.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <limits>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_place_posix_user.h"

namespace {

// The readahead hint is given only from here on, so it costs nothing for small files.
constexpr std::uint64_t sequential_from = std::uint64_t{1} << 20U;

// New files are readable by all and writable by the owner, less the umask.
constexpr mode_t new_file_mode = 0644;

std::string proc_name(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

constexpr struct statx nothing_known {};  // for writers, which ask each time

// A directory has no bytes to read.
std::uint64_t size_of(const struct stat& about) noexcept {
  return S_ISREG(about.st_mode) && about.st_size > 0 ? static_cast<std::uint64_t>(about.st_size) : 0;
}

qfile_time time_of(const timespec& time) noexcept { return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)}; }

int ask_about(int fd, const char* path, struct statx& about) noexcept {
  return ::statx(fd, path, AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &about) == 0 ? 0 : errno;
}

qfile_info info_of(const struct statx& about) noexcept {
  const statx_timestamp& born = (about.stx_mask & STATX_BTIME) != 0 ? about.stx_btime : about.stx_mtime;
  return {S_ISREG(about.stx_mode) ? about.stx_size : 0, qfile_local_time(born.tv_sec, born.tv_nsec),
          qfile_local_time(about.stx_mtime.tv_sec, about.stx_mtime.tv_nsec)};
}

class posix_file final : public qfile_positioned {
 public:
  posix_file(qsys_descriptor&& fd, std::uint32_t flags, const struct statx& at_open) noexcept
      : qfile_positioned((flags & QFILE_WRITE) == 0), fd_(std::move(fd)), flags_(flags), at_open_(at_open) {}
  ~posix_file() override {
    // Unbuffered: drop the pages of this file from the cache.
    if ((flags_ & QFILE_UNBUFFERED) != 0) (void)posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_DONTNEED);
  }
  posix_file(const posix_file&) = delete;
  posix_file& operator=(const posix_file&) = delete;

  qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    if ((flags_ & QFILE_APPEND) == 0) {
      const auto at = static_cast<off_t>(position_);
      const qsys_status status = counted(qsys_retry([&] { return ::pwrite(fd_.get(), buffer, size, at); }), done);
      if (status.ok()) position_ += done;
      return status;
    }
    const qsys_status status = counted(qsys_retry([&] { return ::write(fd_.get(), buffer, size); }), done);
    if (!status.ok()) return status;
    const off_t end = ::lseek(fd_.get(), 0, SEEK_CUR);
    if (end >= 0) position_ = static_cast<std::uint64_t>(end);
    return {};
  }

  qsys_status size(std::uint64_t& bytes) noexcept override {
    if (is_reader()) {
      bytes = expected_size();
      return {};
    }
    struct stat about {};
    if (::fstat(fd_.get(), &about) != 0) return qfile_status_of(errno);
    bytes = size_of(about);
    return {};
  }

  qsys_status truncate(std::uint64_t bytes) noexcept override {
    if (qsys_retry([&] { return ::ftruncate(fd_.get(), static_cast<off_t>(bytes)); }) != 0) {
      return qfile_status_of(errno);
    }
    position_ = bytes;
    return {};
  }

  qsys_status info(qfile_info& out) noexcept override {
    if (!is_reader()) return qfile_posix_info(fd_.get(), "", out);
    out = info_of(at_open_);
    return {};
  }

  qsys_status stamp(qfile_stamp& out) noexcept override {
    struct stat about {};
    if (::fstat(fd_.get(), &about) != 0) return qfile_status_of(errno);
    out = {size_of(about), about.st_ino, time_of(about.st_mtim), time_of(about.st_ctim)};
    return {};
  }

  qsys_status give_name(const qchar* path) override {
    qfile_place place;
    if (const int error = place.reach(path); error != 0) return qfile_status_of(error);
    const std::string source = proc_name(fd_.get());
    const int linked = ::linkat(AT_FDCWD, source.c_str(), place.directory(), place.name(), AT_SYMLINK_FOLLOW);
    return linked == 0 ? qsys_status{} : qfile_status_of(errno);
  }

  qsys_status keep_mode(const qchar* path) override {
    qfile_place place;
    struct stat about {};
    if (const int error = place.reach(path); error != 0) return qfile_status_of(error);
    if (::fstatat(place.directory(), place.name(), &about, AT_SYMLINK_NOFOLLOW) != 0) return {};
    if (S_ISREG(about.st_mode)) (void)::fchmod(fd_.get(), about.st_mode & 0777);
    const bool special = !S_ISREG(about.st_mode) && !S_ISLNK(about.st_mode) && !S_ISDIR(about.st_mode);
    return special ? qfile_status_of(ENXIO) : qsys_status{};
  }

  qsys_status flush() noexcept override {
    return qsys_retry([&] { return ::fsync(fd_.get()); }) == 0 ? qsys_status{} : qfile_status_of(errno);
  }

 private:
  static qsys_status counted(ssize_t count, std::uint32_t& done) noexcept {
    if (count < 0) return qfile_status_of(errno);
    done = static_cast<std::uint32_t>(count);
    return {};
  }

  qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    hint_sequential(offset);
    const auto at = static_cast<off_t>(offset);
    return counted(qsys_retry([&] { return ::pread(fd_.get(), buffer, size, at); }), done);
  }

  std::uint64_t expected_size() noexcept override { return S_ISREG(at_open_.stx_mode) ? at_open_.stx_size : 0; }

  [[nodiscard]] bool is_reader() const noexcept { return (flags_ & QFILE_WRITE) == 0; }

  void hint_sequential(std::uint64_t offset) noexcept {
    if (hinted_ || offset < sequential_from) return;
    hinted_ = true;
    (void)posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }

  qsys_descriptor fd_;
  std::uint32_t flags_;
  struct statx at_open_;
  bool hinted_ = false;
};

int access_mode(std::uint32_t flags) noexcept {
  if ((flags & QFILE_WRITE) == 0) return O_RDONLY;
  return (flags & QFILE_READ) != 0 ? O_RDWR : O_WRONLY;
}

// Regular files; for readers also directories, as on Windows. FIFOs, sockets and devices are refused: O_NONBLOCK kept
// the open from blocking.
int check_kind(int fd, std::uint32_t flags, struct statx& about) noexcept {
  if (const int error = ask_about(fd, "", about); error != 0) return error;
  if (S_ISREG(about.stx_mode)) return 0;
  if (!S_ISDIR(about.stx_mode)) return ENXIO;
  return (flags & QFILE_WRITE) != 0 ? EISDIR : 0;
}

qsys_status take_exclusively(int fd) noexcept {
  if (qsys_retry([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0) return {};
  return errno == EWOULDBLOCK ? qsys_status{QERR_SHARING, qsys_condition::none} : qfile_status_of(errno);
}

qsys_status prepare(int fd, std::uint32_t flags, struct statx& about) noexcept {
  const int error = check_kind(fd, flags, about);
  if (error != 0) return qfile_status_of(error);
  if ((flags & QFILE_EXCLUSIVE) != 0) {
    const qsys_status status = take_exclusively(fd);
    if (!status.ok()) return status;
  }
  // Only now do we know that it is a regular file and ours.
  if ((flags & QFILE_TRUNCATE) != 0 && about.stx_size > 0 && ::ftruncate(fd, 0) != 0) return qfile_status_of(errno);
  return {};
}

// O_NONBLOCK keeps the open from waiting for the other end of a FIFO. It stays set: reads of regular files and
// directories ignore it, and clearing it costs a call per file. It refuses one kind of regular file: one that another
// process (a file server) holds a lease on. The kernel then asks for the lease back; holders usually answer at once.
// One that does not costs a second.
qsys_descriptor open_unblocked(const qfile_place& place, int how) noexcept {
  constexpr int lease_attempts = 100;
  constexpr timespec pause{0, 10000000};
  for (int attempt = 1;; ++attempt) {
    const int fd = qsys_retry([&] { return ::openat(place.directory(), place.name(), how | O_NONBLOCK, 0666); });
    if (fd >= 0 || errno != EWOULDBLOCK || attempt == lease_attempts) return qsys_descriptor(fd);
    (void)::nanosleep(&pause, nullptr);
    errno = EWOULDBLOCK;
  }
}

}  // namespace

std::int64_t qfile_local_time(std::int64_t seconds, std::uint32_t nanoseconds) noexcept {
  constexpr std::int64_t units_a_second = 10000000;
  constexpr std::int64_t seconds_1601_to_1970 = 11644473600;
  // The range of a 64-bit count of 100 ns since 1601, with room for any time zone.
  constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / units_a_second - 2 * seconds_1601_to_1970;
  if (seconds > limit || seconds < -limit) return 0;
  const time_t time = seconds;
  tm parts{};
  const std::int64_t offset = ::localtime_r(&time, &parts) != nullptr ? parts.tm_gmtoff : 0;
  return (seconds + offset + seconds_1601_to_1970) * units_a_second + nanoseconds / 100;
}

qsys_status qfile_posix_open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) {
  qfile_place place;
  const int error = place.reach(path);
  if (error != 0) return qfile_status_of(error);
  int how = access_mode(flags) | O_CLOEXEC | O_NOCTTY;
  if ((flags & QFILE_APPEND) != 0) how |= O_APPEND;
  if ((flags & QFILE_CREATE) != 0) how |= O_CREAT;
  if ((flags & QFILE_NO_FOLLOW) != 0) how |= O_NOFOLLOW;
  qsys_descriptor fd = open_unblocked(place, how);
  if (!fd.valid()) return qfile_status_of(errno);
  struct statx about {};
  const qsys_status status = prepare(fd.get(), flags, about);
  if (!status.ok()) return status;
  out = std::make_unique<posix_file>(std::move(fd), flags, about);
  return {};
}

qsys_status qfile_posix_create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) {
  qfile_place place;
  const int error = place.reach(path);
  if (error != 0) return qfile_status_of(error);
  const int how = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  qsys_descriptor fd(qsys_retry([&] { return ::openat(place.directory(), place.name(), how, new_file_mode); }));
  if (!fd.valid()) return qfile_status_of(errno);
  // The lock shows that the writer lives. Another process may have deleted the file as abandoned before we locked it.
  struct stat about {};
  (void)qsys_retry([&] { return ::flock(fd.get(), LOCK_EX); });
  if (::fstat(fd.get(), &about) == 0 && about.st_nlink == 0) return {QERR_EXISTS, qsys_condition::already_exists};
  out = std::make_unique<posix_file>(std::move(fd), QFILE_WRITE, nothing_known);
  return {};
}

// An old kernel ignores O_TMPFILE and tries to open the directory for writing.
qsys_status qfile_posix_create_nameless(const qchar* path, std::unique_ptr<qfile_object>& out) {
  qfile_place place;
  const int error = place.reach(path);
  if (error != 0) return qfile_status_of(error);
  const std::string_view name(place.name());
  const std::size_t cut = name.rfind('/');
  const std::string folder(cut == std::string_view::npos ? "." : name.substr(0, cut + 1));
  const int how = O_WRONLY | O_TMPFILE | O_CLOEXEC;
  qsys_descriptor fd(qsys_retry([&] { return ::openat(place.directory(), folder.c_str(), how, new_file_mode); }));
  const bool unknown = !fd.valid() && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL);
  if (!fd.valid() && !unknown) return qfile_status_of(errno);
  // The file gets its name through /proc.
  if (!unknown) (void)::flock(fd.get(), LOCK_EX | LOCK_NB);
  if (unknown || ::access(proc_name(fd.get()).c_str(), F_OK) != 0) return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  out = std::make_unique<posix_file>(std::move(fd), QFILE_WRITE, nothing_known);
  return {};
}

qsys_status qfile_posix_info(int fd, const char* path, qfile_info& out) noexcept {
  struct statx about {};
  if (const int error = ask_about(fd, path, about); error != 0) return qfile_status_of(error);
  out = info_of(about);
  return {};
}
