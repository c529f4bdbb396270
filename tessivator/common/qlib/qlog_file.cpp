#include "common/qlib/qlog_file.h"

#include <array>
#include <atomic>
#include <mutex>
#include <new>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"

namespace {

constexpr std::uint32_t log_file_flags = QFILE_APPEND | QFILE_CREATE | QFILE_READ | QFILE_WRITE | QFILE_NO_FOLLOW;
// Of a file that keeps its size by itself.
constexpr std::uint32_t kept_kib = 2048;
constexpr std::uint32_t kept_backups = 4;
constexpr std::array<std::uint8_t, 2> byte_order_mark{0xFF, 0xFE};

using path_buffer = std::array<qchar, QLOG_PATH_UNITS>;

std::mutex sink_lock;

std::mutex path_lock;
path_buffer log_path{};
std::atomic<bool> has_file{false};  // spares the path's lock while there is no file
std::atomic<bool> keeps_size{false};

bool copy_path(path_buffer& path) noexcept {
  if (!has_file.load(std::memory_order_acquire)) return false;
  const std::lock_guard lock(path_lock);
  path = log_path;
  return path[0] != 0;
}

qerr_t write_all(qfile_t file, const void* bytes, std::size_t size) noexcept {
  const auto* rest = static_cast<const std::byte*>(bytes);
  while (size != 0) {
    std::uint32_t done = 0;
    const qerr_t code = qfile_write(file, rest, static_cast<std::uint32_t>(size), &done);
    if (code != QERR_OK) return code;
    if (done == 0 || done > size) return QERR_IO;
    rest += done;
    size -= done;
  }
  return QERR_OK;
}

// The log with its mark, and its size before that.
qerr_t open_log(QfileOwner& file, const qchar* path, std::uint64_t& size) noexcept {
  qerr_t code = qfile_open(file.out(), path, log_file_flags);
  if (code == QERR_OK) code = qfile_size(file.get(), &size);
  if (code != QERR_OK || size != 0) return code;
  return write_all(file.get(), byte_order_mark.data(), byte_order_mark.size());
}

}  // namespace

qlog_file_guard::qlog_file_guard() noexcept { sink_lock.lock(); }

qlog_file_guard::~qlog_file_guard() { sink_lock.unlock(); }

bool qlog_file_is_set() noexcept { return has_file.load(std::memory_order_acquire); }

qerr_t qlog_file_emit(std::u16string_view line) noexcept {
  path_buffer path;
  if (!copy_path(path)) return QERR_OK;
  const qlog_file_guard guard;
  QfileOwner file;
  std::uint64_t size = 0;
  qerr_t code = open_log(file, path.data(), size);
  if (code == QERR_OK && size >= std::uint64_t{kept_kib} * 1024 && keeps_size.load(std::memory_order_relaxed)) {
    file.reset();
    (void)qlog_rotate_held(path.data(), kept_kib, kept_backups);  // if not now, with a later line
    code = open_log(file, path.data(), size);
  }
  if (code != QERR_OK) return code;
  // Both platforms are little-endian, so the units are the file's bytes.
  return write_all(file.get(), line.data(), line.size() * sizeof(qchar));
}

path_buffer qlog_file_path() noexcept {
  path_buffer path{};
  (void)copy_path(path);
  return path;
}

qerr_t qlog_file_start(const qchar* path) noexcept {
  QfileOwner file;
  std::uint64_t size = 0;
  return open_log(file, path, size);
}

qerr_t qlog_set_log_file_kept(const qchar* path) noexcept {
  const qerr_t code = qlog_set_log_file(path);
  keeps_size.store(true, std::memory_order_relaxed);
  return code;
}

qerr_t qlog_set_log_file(const qchar* path) noexcept {
  if (path == nullptr) return QERR_ARG1;
  keeps_size.store(false, std::memory_order_relaxed);
  path_buffer stored;
  {
    const std::lock_guard lock(path_lock);
    (void)qstr_printf(log_path.data(), sizeof(log_path), u"%s", path);
    stored = log_path;
    has_file.store(stored[0] != 0, std::memory_order_release);
  }
  if (stored[0] == 0) return QERR_OK;
  const qlog_file_guard guard;
  return qlog_file_start(stored.data());
}

qlog_named_file qlog_file_from_environment(const char* name) noexcept try {
  qlog_named_file named{qsys_environment(name)};
  if (!named.path.empty()) named.code = qlog_set_log_file_kept(named.path.c_str());
  return named;
} catch (const std::bad_alloc&) {
  return {};
}
