#include <cstring>
#include <new>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qfile_provider.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"

// Operations on names: rename, delete, copy, directories, full paths. Only code below the seam throws, and only
// std::bad_alloc, which becomes 12.

namespace {

constexpr std::uint32_t module_id = QLOG_PROG;

// True for a path whose parent cannot be created: a bare drive, or server and share.
bool is_root(const std::u16string& path) noexcept {
  if (path.empty() || qpath_is_bare_drive(path.c_str())) return true;
  if (!qpath_is_unc(path.c_str())) return false;
  qpath_share parts;
  return !qpath_parse_share(path, parts) || parts.rest.empty();
}

// Upwards: cuts `path` at one separator after the other until a directory exists or could be created.
qsys_status make_first_parent(qfile_provider& provider, const std::u16string& path, qchar separator,
                              std::size_t& length) {
  std::u16string part(path);
  qsys_status status;
  length = path.size();
  for (;;) {
    const std::size_t cut = length == 0 ? std::u16string::npos : part.rfind(separator, length - 1);
    if (cut == std::u16string::npos) return status;
    part.resize(cut);
    length = cut;
    if (is_root(part)) return {};
    status = provider.make_directory(part.c_str());
    if (status.ok() || status.condition == qsys_condition::already_exists) return {};
    if (status.condition != qsys_condition::not_found) return status;
  }
}

// The provider of both paths, or null: nothing can be moved between a share and a disk in one operation.
qfile_provider* common_provider(const qchar* source, const qchar* target) noexcept {
  qfile_provider& provider = qfile_provider_for(source);
  return &provider == &qfile_provider_for(target) ? &provider : nullptr;
}

constexpr qerr_t cross_device = 18;

template <class Operation>
qerr_t on_path(const qchar* path, Operation operation) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  return operation(qfile_provider_for(path)).code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

}  // namespace

qerr_t qfile_mkdir_parents(const qchar* path) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  qfile_provider& provider = qfile_provider_for(path);
  const qchar separator = qpath_separator(path);
  const std::u16string whole(path);
  std::size_t length = 0;
  qsys_status status = make_first_parent(provider, whole, separator, length);
  if (!status.ok()) return status.code;
  for (;;) {  // down again, one more component each time
    const std::size_t next = whole.find(separator, length + 1);
    if (next == std::u16string::npos) return QERR_OK;
    length = next;
    status = provider.make_directory(whole.substr(0, length).c_str());
    if (!status.ok() && status.condition != qsys_condition::already_exists) return status.code;
  }
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_rename(const qchar* source, const qchar* target) noexcept try {
  if (source == nullptr) return QERR_ARG1;
  if (target == nullptr) return QERR_ARG2;
  qfile_provider* const provider = common_provider(source, target);
  if (provider == nullptr) return cross_device;
  const qsys_status status = provider->rename(source, target);
  if (status.condition != qsys_condition::not_found) return status.code;
  QfileOwner there;  // Which of the two is missing?
  qerr_t code = qfile_open(there.out(), source, QFILE_READ);
  if (code != QERR_OK) return code;
  there.reset();
  code = qfile_mkdir_parents(target);
  return code != QERR_OK ? code : provider->rename(source, target).code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_copy(const qchar* source, const qchar* target, std::uint32_t fail_if_exists) noexcept try {
  if (source == nullptr) return QERR_ARG1;
  if (target == nullptr) return QERR_ARG2;
  qfile_provider* const provider = common_provider(source, target);
  return provider == nullptr ? cross_device : provider->copy(source, target, fail_if_exists != 0).code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_delete(const qchar* path) noexcept {
  return on_path(path, [path](qfile_provider& provider) {
    const qsys_status status = provider.remove(path);
    // On purpose: a delete that fails because something exists counts as done.
    return status.condition == qsys_condition::already_exists ? qsys_status{} : status;
  });
}

qerr_t qfile_rmdir(const qchar* path) noexcept {
  return on_path(path, [path](qfile_provider& provider) { return provider.remove_directory(path); });
}

qerr_t qfile_mkdir(const qchar* path) noexcept {
  return on_path(path, [path](qfile_provider& provider) { return provider.make_directory(path); });
}

qerr_t qfile_compress(const qchar* path) noexcept {
  if (path == nullptr) {
    QLOG(QLOG_ERROR, u"Assertion failed: %s\n", u"path != nullptr");
    return QERR_INVALID;
  }
  return on_path(path, [path](qfile_provider& provider) { return provider.compress(path); });
}

bool qfile_exists(const qchar* path) noexcept try {
  return path != nullptr && qfile_provider_for(path).exists(path).ok();
} catch (...) {
  return false;
}

qerr_t qfile_full_path(const qchar* path, qchar* buffer, std::uint32_t* size_in_out) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (size_in_out == nullptr) return QERR_ARG3;
  std::u16string full;
  const qsys_status status = qfile_provider_for(path).full_path(path, full);
  if (!status.ok()) return status.code;
  if (full.size() >= 0xFFFFFFFFU) return QERR_OVERFLOW;
  const auto needed = static_cast<std::uint32_t>(full.size() + 1);
  const std::uint32_t capacity = *size_in_out;
  *size_in_out = needed;
  if (buffer == nullptr || capacity < needed) return QERR_BUFFER_SMALL;
  std::memcpy(buffer, full.c_str(), needed * sizeof(qchar));
  return QERR_OK;
} catch (...) {
  return QERR_LOW_MEMORY;
}
