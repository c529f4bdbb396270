#include "common/qlib/qfile_itr.h"

#include <algorithm>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qstr.h"

namespace {

// No path goes through more directory links than this, so that lattices of links end as well as cycles.
constexpr std::uint32_t MOST_LINKS = 16;

// Searches that may hold a system handle at once. A deeper walk parks the outermost: what is left of that directory is
// kept in memory (about its names' bytes: 3 MB for 100,000 entries), so a wide flat directory costs no memory at all
// and a tree of any depth costs the host no more than this many descriptors.
constexpr std::size_t MOST_OPEN_SEARCHES = 16;

bool is_share_root(const std::u16string& path) noexcept {
  if (!qpath_is_unc(path.c_str())) return false;
  const std::size_t share = path.find(u'\\', 2);
  return share != std::u16string::npos && share > 2 && share + 1 < path.size() &&
         path.find(u'\\', share + 1) == std::u16string::npos;
}

qsys_status start_path(const qchar* path, std::u16string& out) {
  if (!qpath_is_bare_drive(path)) {
    const qsys_status status = qfile_provider_for(path).full_path(path, out);
    if (!status.ok()) return status;
  } else {
    out = path;
  }
  if (out.size() > 1 && out.back() == qpath_separator(out.c_str())) out.pop_back();
  return {};
}

// Level 0 searches for the path itself, or lists a root: "C:\*", "/*", "\\server\share\*".
void set_start(qfile_itr& iterator) {
  std::u16string& path = iterator.path;
  iterator.separator = qpath_separator(path.c_str());
  iterator.lists_start = qpath_is_bare_drive(path.c_str()) || is_share_root(path);
  if (iterator.lists_start) {
    if (path.back() != iterator.separator) path += iterator.separator;
    path += u'*';
  }
  const std::size_t cut = path.rfind(iterator.separator);
  qfile_itr_level level;
  level.directory_length = cut == std::u16string::npos ? 0 : cut;
  iterator.levels.push_back(std::move(level));
}

bool open_level(qfile_itr& iterator) {
  const std::size_t depth = iterator.levels.size() - 1;
  if (depth >= MOST_OPEN_SEARCHES) {
    qfile_search* const outermost = iterator.levels[depth - MOST_OPEN_SEARCHES].search.get();
    if (outermost != nullptr) outermost->park();
  }
  qfile_itr_level& level = iterator.levels.back();
  qfile_provider& provider = qfile_provider_for(iterator.path.c_str());
  if (depth > 0) {
    iterator.path.resize(level.directory_length);
    return provider.list(iterator.path.c_str(), level.search).ok();
  }
  if (!iterator.lists_start) return provider.search(iterator.path.c_str(), level.search).ok();
  std::u16string root(iterator.path, 0, level.directory_length);
  root += iterator.separator;
  return provider.list(root.c_str(), level.search).ok();
}

// Level 0 is a directory of this walk only when its contents are listed; otherwise it merely holds the start.
bool is_walked_directory(const qfile_itr& iterator, std::size_t depth) noexcept {
  return depth > 0 || iterator.lists_start;
}

void identify(const qfile_itr& iterator, std::size_t length, qfile_itr_level& level) {
  if (level.has_identity) return;
  std::u16string directory(iterator.path, 0, length);
  if (directory.find(iterator.separator) == std::u16string::npos) directory += iterator.separator;  // a drive's root
  level.has_identity = qfile_provider_for(directory.c_str()).identity(directory.c_str(), level.identity).ok();
}

// Below a link any directory can be one that is open above, not only the link's own target. Above the first link none
// can, and nothing is asked.
bool is_open_above(qfile_itr& iterator, qfile_itr_level& entered) {
  identify(iterator, entered.directory_length, entered);
  if (!entered.has_identity) return false;  // then the number of links bounds the walk
  for (std::size_t depth = 0; depth < iterator.levels.size(); ++depth) {
    if (!is_walked_directory(iterator, depth)) continue;
    qfile_itr_level& above = iterator.levels[depth];
    identify(iterator, above.directory_length, above);
    if (above.has_identity && above.identity == entered.identity) return true;
  }
  return false;
}

// Makes the directory that was just reported the next one to be read, unless the options or the bounds forbid it.
void enter_directory(qfile_itr& iterator) {
  const qfile_entry& entry = iterator.entry;
  if ((iterator.flags & QFILE_ITR_NO_REPARSE) != 0 && entry.is_reparse) return;
  if ((iterator.flags & QFILE_ITR_ONE_LEVEL) != 0 && iterator.levels.size() > 1) return;
  qfile_itr_level level;
  level.directory_length = iterator.path.size();
  level.links = iterator.levels.back().links + (entry.is_link ? 1 : 0);
  if (level.links > MOST_LINKS) return;
  if ((level.links > 0 || entry.may_repeat) && is_open_above(iterator, level)) return;
  iterator.levels.push_back(std::move(level));
}

// The next entry of the innermost level that has one.
qerr_t read_entry(qfile_itr& iterator) {
  while (!iterator.levels.empty()) {
    qfile_itr_level& level = iterator.levels.back();
    if (!level.search && !open_level(iterator)) {
      iterator.levels.pop_back();
      continue;
    }
    const qsys_status status = level.search->next(iterator.entry);
    if (status.condition == qsys_condition::end_of_directory) {
      iterator.levels.pop_back();
      continue;
    }
    if (!status.ok()) return status.code;
    if (iterator.entry.name == u"." || iterator.entry.name == u"..") continue;
    iterator.path.resize(level.directory_length);
    iterator.path += iterator.separator;
    iterator.path += iterator.entry.name;
    return QERR_OK;
  }
  return QERR_END;
}

}  // namespace

qerr_t qfile_itr_open(qfile_itr* iterator, const qchar* path) noexcept { return qfile_itr_open_ex(iterator, path, 0); }

qerr_t qfile_itr_open_ex(qfile_itr* iterator, const qchar* path, std::uint32_t flags) noexcept try {
  if (iterator == nullptr) return QERR_ARG1;
  if (path == nullptr) return QERR_ARG2;
  qfile_itr opened;
  opened.flags = flags;
  const qsys_status status = start_path(path, opened.path);
  if (!status.ok()) return status.code;
  set_start(opened);
  *iterator = std::move(opened);
  return QERR_OK;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t qfile_itr_next(qfile_itr* iterator, const qchar** path_out, std::uint32_t* is_directory,
                      std::uint32_t* is_symlink) noexcept {
  if (iterator == nullptr) return QERR_ARG1;
  if (path_out == nullptr) return QERR_ARG2;
  *path_out = nullptr;
  if (is_directory != nullptr) *is_directory = 0;
  if (is_symlink != nullptr) *is_symlink = 0;
  qerr_t code = QERR_LOW_MEMORY;
  try {
    code = read_entry(*iterator);
    if (code == QERR_OK && iterator->entry.is_directory) enter_directory(*iterator);
  } catch (...) {
    code = QERR_LOW_MEMORY;
  }
  if (code != QERR_OK) {
    iterator->levels.clear();
    return code;
  }
  *path_out = iterator->path.c_str();
  if (is_directory != nullptr && iterator->entry.is_directory) *is_directory = 1;
  if (is_symlink != nullptr && iterator->entry.is_symlink) *is_symlink = 1;
  return QERR_OK;
}

qerr_t qfile_itr_close(qfile_itr* iterator) noexcept {
  if (iterator == nullptr) return QERR_ARG1;
  *iterator = qfile_itr();
  return QERR_OK;
}
