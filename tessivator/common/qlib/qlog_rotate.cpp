// Limits the size of a log file: its numbered backups move up by one, and the file starts again.
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qlog_file.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"

namespace {

constexpr std::uint32_t default_size_kib = 2048;
constexpr std::uint32_t default_interval_ms = 10000;
constexpr std::uint32_t second_file_backups = 4;
constexpr std::uint32_t lock_flags = QFILE_CREATE | QFILE_WRITE | QFILE_EXCLUSIVE | QFILE_NO_FOLLOW;
// Used whatever the extension of the log file is.
constexpr const qchar* backup_suffix = u".log";

using name_buffer = std::array<qchar, QLOG_PATH_UNITS>;

struct rotation_context;

// A running watch; the destructor stops it.
struct rotation_watch {
  rotation_watch() noexcept = default;
  rotation_watch(const rotation_watch&) = delete;
  rotation_watch& operator=(const rotation_watch&) = delete;
  ~rotation_watch() {
    if (stop) stop->set();
    thread.reset();
  }
  rotation_context* context = nullptr;
  std::u16string path;
  std::unique_ptr<qsys_event> stop;
  std::unique_ptr<qsys_thread> thread;
};

struct rotation_context {
  explicit constexpr rotation_context(std::uint32_t backups) noexcept : count(backups) {}
  std::atomic<std::uint32_t> size_kib{default_size_kib};
  std::atomic<std::uint32_t> count;
  std::atomic<std::uint32_t> interval_ms{default_interval_ms};
  // Guarded by watch_lock. A plain pointer: a static owner would be destroyed at exit while its thread may still run.
  rotation_watch* watch = nullptr;
};

std::mutex watch_lock;
constinit rotation_context main_context{0};  // without backups nothing is rotated
constinit rotation_context second_context{second_file_backups};

// The path without its extension. A full stop in a directory's name does not begin an extension.
std::u16string stem_of(const qchar* path) {
  std::u16string stem(path);
  const qchar* extension = qstr_extension(path);
  if (extension != nullptr) stem.resize(static_cast<std::size_t>(extension - path) - 1);
  return stem;
}

// What a log is moved aside to. Only rotation uses this name, so a file there is left of an interrupted one.
std::u16string aside_name(const qchar* path) { return std::u16string(path) + u".rotating"; }

// Name of backup `index`. A name that does not fit is refused: cut names would all be the same, and each backup would
// overwrite the one before it.
qerr_t backup_name(name_buffer& name, const std::u16string& stem, std::uint32_t index) noexcept {
  const int written = qstr_printf(name.data(), sizeof(name), u"%s%c%d%s", stem, u'_', index, backup_suffix);
  return written < 0 ? QERR_NAME_LONG : QERR_OK;
}

// Moves the file that was moved aside and the backups up by one, oldest first. A missing backup is not an error.
qerr_t shift_backups(const std::u16string& aside, const std::u16string& stem, std::uint32_t count) noexcept {
  qerr_t result = QERR_OK;
  for (std::uint32_t i = count; i > 0; --i) {
    name_buffer target;
    name_buffer source;
    qerr_t code = backup_name(target, stem, i);
    if (code == QERR_OK && i > 1) code = backup_name(source, stem, i - 1);
    if (code == QERR_OK) code = qfile_rename(i > 1 ? source.data() : aside.c_str(), target.data());
    if (code == QERR_OK) {
      (void)qfile_compress(target.data());
    } else if (i == 1 || code != QERR_NOT_FOUND) {
      result = code;
    }
  }
  return result;
}

// The log goes first: while a viewer holds it on Windows it cannot be moved, and the backups stay. What an interrupted
// rotation moved aside goes on from there.
qerr_t move_up(const qchar* path, const std::u16string& stem, std::uint32_t count) {
  const std::u16string aside = aside_name(path);
  name_buffer last;
  qerr_t code = backup_name(last, stem, count);
  if (code == QERR_OK && !qfile_exists(aside.c_str())) code = qfile_rename(path, aside.c_str());
  return code == QERR_OK ? shift_backups(aside, stem, count) : code;
}

// Once until a rotation succeeds: a log that cannot be moved grows with every line.
void tell_failure(const qchar* path, qerr_t code) noexcept {
  static std::atomic<bool> told{false};
  if (told.exchange(code != QERR_OK, std::memory_order_relaxed) || code == QERR_OK) return;
  (void)qstr_console_printf(u"Failed to rotate log file \"%s\". %d(%s)\n", path, code, qerr_get_string(code));
}

bool is_due(const qchar* path, std::uint32_t size_kib, qerr_t& code) noexcept {
  std::uint64_t size = 0;
  code = qfile_size_by_name(path, &size);
  if (code != QERR_OK) {
    size = 0;
    (void)qstr_console_printf(u"Failed to find the size of file \"%s\".%d(%s)\n", path, code, qerr_get_string(code));
  }
  return size >= std::uint64_t{size_kib} * 1024;
}

// Checked again under the lock: another process may have rotated already.
qerr_t rotate(const qchar* path, std::uint32_t size_kib, std::uint32_t count) {
  const std::u16string stem = stem_of(path);
  qerr_t result = QERR_OK;
  if (count == 0 || !is_due(path, size_kib, result)) return result;
  QfileOwner lock;
  result = qfile_open(lock.out(), (std::u16string(path) + u".lock").c_str(), lock_flags);
  if (result == QERR_SHARING) return QERR_OK;
  if (result != QERR_OK || !is_due(path, size_kib, result)) return result;
  result = move_up(path, stem, count);
  tell_failure(path, result);
  const qerr_t started = qlog_file_start(path);
  if (started != QERR_OK) {
    result = started;
    (void)qstr_console_printf(u"Failed to write magic num to \"%s\". %d(%s))\n", path, result, qerr_get_string(result));
  }
  return result;
}

void watch_file(void* argument) noexcept {
  const auto* watch = static_cast<const rotation_watch*>(argument);
  rotation_context& context = *watch->context;
  for (;;) {
    const qerr_t code = watch->stop->wait(context.interval_ms.load(std::memory_order_relaxed));
    if (code == QERR_TIMER_EXPIRED) {
      (void)qlog_rotate_file(watch->path.c_str(), context.size_kib.load(std::memory_order_relaxed),
                             context.count.load(std::memory_order_relaxed));
      continue;
    }
    if (code != QERR_OK) (void)qstr_console_printf(u"Wait on event failed. err = %d", code);
    return;
  }
}

void stop_watch(rotation_context& context) noexcept {
  const std::unique_ptr<rotation_watch> ended(context.watch);
  context.watch = nullptr;
}

qerr_t start_watch(rotation_context& context, const qchar* path) noexcept try {
  auto watch = std::make_unique<rotation_watch>();
  watch->context = &context;
  watch->path = path;
  qerr_t code = qsys_event_create(watch->stop);
  if (code != QERR_OK) {
    (void)qstr_console_printf(u"Failed to create rotate thread evt. err = %d\n", code);
    return code;
  }
  code = qsys_thread_start(watch->thread, &watch_file, watch.get());
  if (code != QERR_OK) {
    (void)qstr_console_printf(u"Failed to create rotate thread. err = %d\n", code);
    return code;
  }
  stop_watch(context);
  context.watch = watch.release();
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}

}  // namespace

qerr_t qlog_rotate_held(const qchar* path, std::uint32_t size_kib, std::uint32_t count) noexcept try {
  return rotate(path, size_kib, count);
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}

qerr_t qlog_rotate_file(const qchar* path, std::uint32_t size_kib, std::uint32_t count) noexcept {
  if (path == nullptr) return QERR_ARG1;
  const qlog_file_guard guard;
  return qlog_rotate_held(path, size_kib, count);
}

void qlog_set_rotate_count(std::uint32_t count) noexcept {
  main_context.count.store(count, std::memory_order_relaxed);
  second_context.count.store(count, std::memory_order_relaxed);
}

void qlog_set_rotate_size_kb(std::uint32_t kib) noexcept {
  main_context.size_kib.store(kib, std::memory_order_relaxed);
  second_context.size_kib.store(kib, std::memory_order_relaxed);
}

void qlog_set_rotate_interval_ms(std::uint32_t interval_ms) noexcept {
  main_context.interval_ms.store(interval_ms, std::memory_order_relaxed);
  second_context.interval_ms.store(interval_ms, std::memory_order_relaxed);
}

qerr_t qlog_start_rotate_thread_for(const qchar* path) noexcept {
  if (path == nullptr) return QERR_ARG1;
  const std::lock_guard lock(watch_lock);
  second_context.size_kib.store(default_size_kib, std::memory_order_relaxed);
  second_context.count.store(second_file_backups, std::memory_order_relaxed);
  second_context.interval_ms.store(default_interval_ms, std::memory_order_relaxed);
  return start_watch(second_context, path);
}

qerr_t qlog_rotate_start_main(const qchar* path) noexcept {
  const std::lock_guard lock(watch_lock);
  return start_watch(main_context, path);
}

void qlog_rotate_stop() noexcept {
  const std::lock_guard lock(watch_lock);
  stop_watch(main_context);
  stop_watch(second_context);
}
