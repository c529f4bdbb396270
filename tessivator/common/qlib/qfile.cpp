#include "common/qlib/qfile.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_provider.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qreplaceable.h"

// Argument checks and handles. Only code below the seam throws, and only std::bad_alloc, which becomes 12.

namespace {

qreplaceable<qfile_watcher> read_watcher;

constexpr std::uint32_t needs_write = QFILE_APPEND | QFILE_CREATE | QFILE_TRUNCATE;

bool flags_are_valid(std::uint32_t flags) noexcept {
  if ((flags & (QFILE_READ | QFILE_WRITE)) == 0) return false;
  if ((flags & needs_write) != 0 && (flags & QFILE_WRITE) == 0) return false;
  return (flags & QFILE_APPEND) == 0 || (flags & (QFILE_TRUNCATE | QFILE_UNBUFFERED)) == 0;
}

}  // namespace

void qfile_watch_reads(qfile_watcher* watcher) noexcept { read_watcher.replace(watcher); }

qerr_t qfile_open(qfile_t* handle, const qchar* path, std::uint32_t flags) noexcept try {
  if (handle == nullptr) return QERR_ARG1;
  if (path == nullptr) return QERR_ARG2;
  if (!flags_are_valid(flags)) return QERR_ARG3;
  qfile_provider& provider = qfile_provider_for(path);
  std::unique_ptr<qfile_object> file;
  qsys_status status = provider.open(path, flags, file);
  if (status.condition == qsys_condition::not_found && (flags & QFILE_CREATE) != 0) {
    const qerr_t code = qfile_mkdir_parents(path);
    if (code != QERR_OK) return code;
    status = provider.open(path, flags, file);
  }
  if (!status.ok()) return status.code;
  *handle = file.release();
  return QERR_OK;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_close(qfile_t handle) noexcept {
  const std::unique_ptr<qfile_object> owner(handle);
  return QERR_OK;
}

qerr_t qfile_read(qfile_t handle, void* buffer, std::uint32_t size, std::uint32_t* bytes_read) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (buffer == nullptr) return QERR_ARG2;
  if (bytes_read == nullptr) return QERR_ARG4;
  *bytes_read = 0;
  const qerr_t code = qlib_is_cancelled() ? QERR_CANCELLED : handle->read(buffer, size, *bytes_read).code;
  handle->note(code);
  if (qfile_watcher* const watcher = read_watcher.own()) watcher->on_read(*bytes_read);
  return code;
}

Bytes qfile_held(qfile_t handle) noexcept { return handle == QFILE_INVALID ? Bytes() : handle->held(); }

qerr_t qfile_failure(qfile_t handle) noexcept { return handle == QFILE_INVALID ? QERR_ARG1 : handle->failure(); }

qerr_t qfile_write(qfile_t handle, const void* buffer, std::uint32_t size, std::uint32_t* bytes_written) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (buffer == nullptr) return QERR_ARG2;
  if (bytes_written == nullptr) return QERR_ARG4;
  *bytes_written = 0;
  return handle->write(buffer, size, *bytes_written).code;
}

qerr_t qfile_seek(qfile_t handle, std::int64_t offset, std::uint32_t origin, std::uint64_t* new_position) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (origin > QFILE_FROM_END) return QERR_ARG3;
  std::uint64_t position = 0;
  const qsys_status status = handle->seek(offset, origin, position);
  if (!status.ok()) return status.code;
  if (new_position != nullptr) *new_position = position;
  return QERR_OK;
}

qerr_t qfile_size(qfile_t handle, std::uint64_t* size) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (size == nullptr) return QERR_ARG2;
  std::uint64_t bytes = 0;
  const qsys_status status = handle->size(bytes);
  if (status.ok()) *size = bytes;
  return status.code;
}

qerr_t qfile_size_by_name(const qchar* path, std::uint64_t* size) noexcept {
  if (path == nullptr) return QERR_ARG1;
  QfileOwner file;
  const qerr_t code = qfile_open(file.out(), path, QFILE_READ);
  if (code != QERR_OK || size == nullptr) return code;
  return qfile_size(file.get(), size);
}

qerr_t qfile_truncate(qfile_t handle, std::uint64_t size) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return QERR_ARG2;
  return handle->truncate(size).code;
}

qerr_t qfile_get_info(qfile_t handle, qfile_info* info) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (info == nullptr) return QERR_ARG2;
  qfile_info found{};
  const qsys_status status = handle->info(found);
  if (status.ok()) *info = found;
  return status.code;
}

qerr_t qfile_get_stamp(qfile_t handle, qfile_stamp* stamp) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (stamp == nullptr) return QERR_ARG2;
  qfile_stamp found;
  const qsys_status status = handle->stamp(found);
  if (status.ok()) *stamp = found;
  return status.code;
}

qerr_t qfile_get_info_by_name(const qchar* path, qfile_info* info) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (info == nullptr) return QERR_ARG2;
  qfile_info found{};
  const qsys_status status = qfile_provider_for(path).info(path, found);
  if (status.ok()) *info = found;
  return status.code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_map(qfile_t handle, std::uint64_t length, const std::byte** view, std::uint64_t* mapped) noexcept {
  if (handle == QFILE_INVALID) return QERR_ARG1;
  if (view == nullptr) return QERR_ARG3;
  std::uint64_t size = 0;
  const qerr_t sized = qfile_size(handle, &size);
  if (sized != QERR_OK) return sized;
  length = std::min(length, size);
  if (length == 0) return QERR_INVALID;
  if (length > std::numeric_limits<std::size_t>::max()) return QERR_LOW_MEMORY;
  const auto wanted = static_cast<std::size_t>(length);
  QmemPtr<std::byte> bytes(static_cast<std::byte*>(qmem_alloc(wanted)));
  if (!bytes) return QERR_LOW_MEMORY;
  std::size_t done = 0;
  const qsys_status status = handle->view(bytes.get(), wanted, done);
  handle->note(status.code);
  if (!status.ok()) return status.code;
  if (done < wanted) std::memset(bytes.get() + done, 0, wanted - done);
  if (mapped != nullptr) *mapped = length;
  *view = bytes.release();
  return QERR_OK;
}

qerr_t qfile_unmap(const std::byte* view) noexcept {
  qmem_free(const_cast<std::byte*>(view));
  return QERR_OK;
}
