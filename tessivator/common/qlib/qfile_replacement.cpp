#include "common/qlib/qfile_replacement.h"

#include <algorithm>
#include <random>
#include <string_view>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qfile_provider.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qpath.h"

namespace {

constexpr std::u16string_view name_start = u".brantle-";
constexpr std::u16string_view name_end = u".tmp";
constexpr std::u16string_view digits = u"0123456789abcdef";
constexpr std::size_t digit_count = 16;

// Names are random so that an attacker cannot create the file first; a name that is taken is tried again.
constexpr int name_attempts = 16;

// A file that another program has open is retried for 5 s; virus scanners have closed it by then.
constexpr std::uint32_t pause_ms = 100;
constexpr int most_pauses = 50;
constexpr std::size_t copy_block = std::size_t{1} << 18U;

std::u16string sibling(const std::u16string& path, std::u16string_view name) {
  const std::size_t cut = path.rfind(qpath_separator(path.c_str()));
  return std::u16string(path, 0, cut == std::u16string::npos ? 0 : cut + 1).append(name);
}

std::u16string temporary_beside(const std::u16string& path) {
  std::u16string name = sibling(path, name_start);
  std::random_device source;
  for (std::size_t digit = 0; digit < digit_count; digit += 8) {
    std::uint32_t bits = source();
    for (int i = 0; i < 8; ++i, bits >>= 4) name += digits[bits & 15U];
  }
  return name += name_end;
}

// Calls `take` with new names until one is free.
template <class Take>
qsys_status with_new_name(const std::u16string& target, std::u16string& name, Take take) {
  qsys_status status;
  for (int attempt = 0; attempt < name_attempts; ++attempt) {
    std::u16string tried = temporary_beside(target);
    status = take(tried.c_str());
    if (status.ok()) name = std::move(tried);
    if (status.condition != qsys_condition::already_exists) break;
  }
  return status;
}

qerr_t write_all(qfile_object& file, const void* bytes, std::size_t size) noexcept {
  constexpr std::size_t largest_write = std::size_t{1} << 30U;
  const auto* at = static_cast<const std::byte*>(bytes);
  while (size > 0) {
    std::uint32_t done = 0;
    const auto part = static_cast<std::uint32_t>(std::min(size, largest_write));
    const qsys_status status = file.write(at, part, done);
    if (!status.ok()) return status.code;
    if (done == 0 || done > part) return QERR_IO;
    at += done;
    size -= done;
  }
  return QERR_OK;
}

bool is_directory(qfile_provider& provider, const std::u16string& path) {
  std::unique_ptr<qfile_search> search;
  qfile_entry entry;
  return provider.search(path.c_str(), search).ok() && search->next(entry).ok() && entry.is_directory;
}

}  // namespace

qfile_replacement::qfile_replacement() noexcept = default;

qfile_replacement::~qfile_replacement() { abandon(); }

void qfile_replacement::abandon() noexcept {
  file_.reset();
  if (name_.empty()) return;
  try {
    (void)provider_->remove(name_.c_str());
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory even for the name, and nothing else to do
  }
  name_.clear();
}

qerr_t qfile_replacement::begin(const qchar* path) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  abandon();
  provider_ = &qfile_provider_for(path);
  target_ = path;
  qsys_status status = provider_->create_nameless(path, file_);
  if (status.code == QERR_NOT_IMPLEMENTED) {
    status = with_new_name(target_, name_, [&](const qchar* name) { return provider_->create_exclusive(name, file_); });
  }
  if (status.ok()) status = file_->keep_mode(path);
  if (!status.ok()) abandon();
  return status.code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_replacement::write(const void* bytes, std::size_t size) noexcept {
  if (!file_) return QERR_ARG1;
  if (bytes == nullptr && size > 0) return QERR_ARG2;
  return write_all(*file_, bytes, size);
}

qerr_t qfile_replacement::commit(bool flush) noexcept try { return file_ ? put(flush).code : QERR_ARG1; } catch (...) {
  return QERR_LOW_MEMORY;
}

qsys_status qfile_replacement::put(bool flush) {
  if (flush) {
    const qsys_status flushed = file_->flush();
    if (!flushed.ok()) return {flushed.code};
  }
  if (name_.empty()) {
    // Nothing to replace: the file gets its final name at once.
    qsys_status status = file_->give_name(target_.c_str());
    if (status.condition == qsys_condition::already_exists) {
      status = with_new_name(target_, name_, [&](const qchar* name) { return file_->give_name(name); });
    }
    if (!status.ok() || name_.empty()) {
      file_.reset();
      return status;
    }
  } else {
    file_.reset();  // a named file can be renamed only when closed
  }
  const qsys_status renamed = rename_to(target_);
  file_.reset();
  return renamed;
}

qsys_status qfile_replacement::rename_to(const std::u16string& path) {
  const qsys_status renamed = provider_->rename(name_.c_str(), path.c_str());
  if (renamed.ok()) name_.clear();
  return renamed;
}

qerr_t qfile_replacement::commit_over_held(const qchar* other_name, qfile_committed* how) noexcept try {
  if (!file_ || other_name == nullptr) return QERR_ARG1;
  if (how == nullptr) return QERR_ARG2;
  *how = qfile_committed::renamed;
  const qsys_status status = put(true);
  if (status.condition != qsys_condition::held || is_directory(*provider_, target_)) return status.code;
  return put_over_held(other_name, *how).code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_replacement::commit_beside(const qchar* other_name) noexcept try {
  if (!file_ || other_name == nullptr) return QERR_ARG1;
  target_ = sibling(target_, other_name);
  return put(true).code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qsys_status qfile_replacement::put_over_held(const qchar* other_name, qfile_committed& how) {
  // While it is open, no other scan removes it as abandoned.
  std::unique_ptr<qfile_object> kept;
  (void)provider_->open(name_.c_str(), QFILE_READ, kept);
  qsys_status status{QERR_SHARING, qsys_condition::held};
  for (int i = 0; i < most_pauses && status.condition == qsys_condition::held && !qlib_is_cancelled(); ++i) {
    provider_->pause(pause_ms);
    status = rename_to(target_);
  }
  if (status.condition != qsys_condition::held) return status;
  if (replace_aside()) return {};
  if (copy_over()) {
    how = qfile_committed::copied;
    kept.reset();
    abandon();
    return {};
  }
  how = qfile_committed::beside;
  return rename_to(sibling(target_, other_name));
}

// An open file can still be renamed if its opener allows deletion.
bool qfile_replacement::replace_aside() {
  const std::u16string aside = temporary_beside(target_);
  if (!provider_->rename(target_.c_str(), aside.c_str()).ok()) return false;
  const bool replaced = rename_to(target_).ok();
  if (replaced) {
    (void)provider_->remove(aside.c_str());
  } else {
    (void)provider_->rename(aside.c_str(), target_.c_str());
  }
  return replaced;
}

bool qfile_replacement::copy_over() {
  std::unique_ptr<qfile_object> from;
  std::unique_ptr<qfile_object> to;
  if (!provider_->open(name_.c_str(), QFILE_READ, from).ok()) return false;
  if (!provider_->open(target_.c_str(), QFILE_WRITE | QFILE_NO_FOLLOW, to).ok()) return false;
  std::vector<std::byte> buffer(copy_block);
  std::uint64_t copied = 0;
  for (;;) {  // ends at the end of the file; nobody else writes it
    std::uint32_t got = 0;
    if (!from->read(buffer.data(), static_cast<std::uint32_t>(buffer.size()), got).ok()) return false;
    if (got == 0) return to->truncate(copied).ok() && to->flush().ok();
    if (write_all(*to, buffer.data(), got) != QERR_OK) return false;
    copied += got;
  }
}

bool qfile_is_temporary(const qchar* path) noexcept {
  if (path == nullptr) return false;
  std::u16string_view name(path);
  const std::size_t cut = name.rfind(qpath_separator(path));
  if (cut != std::u16string_view::npos) name.remove_prefix(cut + 1);
  if (name.size() != name_start.size() + digit_count + name_end.size()) return false;
  if (!name.starts_with(name_start) || !name.ends_with(name_end)) return false;
  const std::u16string_view number = name.substr(name_start.size(), digit_count);
  return number.find_first_not_of(digits) == std::u16string_view::npos;
}

void qfile_remove_temporaries(const qchar* directory) noexcept try {
  if (directory == nullptr) return;
  qfile_provider& provider = qfile_provider_for(directory);
  std::unique_ptr<qfile_search> search;
  if (!provider.list({directory}, search).ok()) return;
  std::vector<std::u16string> found;
  qfile_entry entry;
  while (search->next(entry).ok()) {
    if (!entry.is_directory && qfile_is_temporary(entry.name.c_str())) found.push_back(entry.name);
  }
  search.reset();
  for (const std::u16string& name : found) {
    const std::u16string path = qpath_join(directory, name);
    std::unique_ptr<qfile_object> file;
    // A living writer would hold the lock.
    if (!provider.open(path.c_str(), QFILE_WRITE | QFILE_EXCLUSIVE, file).ok()) continue;
    file.reset();
    (void)provider.remove(path.c_str());
  }
} catch (...) {  // NOLINT(bugprone-empty-catch): a later scan tries again
}

qerr_t qfile_write_whole(const qchar* path, const void* bytes, std::size_t size, std::uint32_t flush) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (bytes == nullptr && size > 0) return QERR_ARG2;
  qfile_replacement file;
  qerr_t code = file.begin(path);
  if (code == QERR_OK) code = file.write(bytes, size);
  if (code == QERR_OK) code = file.commit(flush != 0);
  return code;
}
