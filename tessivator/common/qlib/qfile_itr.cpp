#include "common/qlib/qfile_itr.h"

#include <new>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qutf8.h"

namespace {

constexpr std::uint32_t module_id = QLOG_PROG;

// The limit on directory links in one path, so that lattices and cycles of links end.
constexpr std::uint32_t most_links = 16;

// The limit on searches with a system handle. A deeper walk parks the outermost search: its remaining entries move to
// memory (about the size of their names: 3 MB for 100,000 entries). So a wide flat directory needs no memory, and a
// tree of any depth uses no more descriptors than this.
constexpr std::size_t most_open_searches = 16;

bool is_share_root(const std::u16string& path) noexcept {
  qpath_share parts;
  return qpath_parse_share(path, parts) && parts.rest.empty();
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
  const std::size_t last = cut == std::u16string::npos ? 0 : cut + 1;
  iterator.selects = path.find_first_of(u"*?", last) != std::u16string::npos;
  qfile_itr_level level;
  level.directory_length = cut == std::u16string::npos ? 0 : cut;
  iterator.levels.push_back(std::move(level));
}

std::u16string directory_of(const qfile_itr& iterator, const qfile_itr_level& level) {
  std::u16string directory(iterator.path, 0, level.directory_length);
  if (directory.find(iterator.separator) == std::u16string::npos) directory += iterator.separator;  // a drive's root
  return directory;
}

// The start and the end of a long path.
std::u16string shortened(std::u16string_view path) {
  constexpr std::size_t shown = 200;
  constexpr std::size_t longest = 4096;
  if (path.size() <= longest) return std::u16string(path);
  return std::u16string(path.substr(0, shown)).append(u"...").append(path.substr(path.size() - shown));
}

void leave_out(qfile_itr& iterator, const std::u16string& directory, qerr_t code) noexcept {
  ++iterator.left_out.directories;
  iterator.left_out.remember(directory, code);
  QLOG(QLOG_WARNING, u"Failed to list directory %s. ecode %d: %s.\n", directory, code, qerr_get_string(code));
}

// The size of the path in a report. What XML forbids, and what is no character, becomes U+FFFD (three bytes).
std::size_t bytes_in_report(const std::u16string& path) noexcept {
  constexpr std::size_t bytes_of_replacement = 3;
  std::size_t bytes = 0;
  for (std::u16string_view rest(path); !rest.empty();) {
    const qutf8_step step = qutf16_next(rest);
    rest.remove_prefix(step.length);
    if (!step.valid || step.scalar < U' ' || step.scalar >= 0x800) {
      bytes += step.length == 2 ? 4 : bytes_of_replacement;
    } else {
      bytes += step.scalar < 0x80 ? 1 : 2;
    }
  }
  return bytes;
}

// Skips the current entry if its path is too long for readers of reports.
bool skip_long_path(qfile_itr& iterator) {
  constexpr std::size_t most_bytes_a_unit = 3;
  if (iterator.path.size() <= QFILE_ITR_LONGEST_PATH / most_bytes_a_unit) return false;
  const std::size_t bytes = bytes_in_report(iterator.path);
  if (bytes <= QFILE_ITR_LONGEST_PATH) return false;
  std::uint64_t& count = iterator.entry.is_directory ? iterator.left_out.directories : iterator.left_out.files;
  ++count;
  iterator.left_out.remember(iterator.path, QERR_NAME_LONG);
  QLOG(QLOG_WARNING, u"Skipped a path of %llu bytes: %s\n", std::uint64_t{bytes}, shortened(iterator.path));
  return true;
}

void park_outermost(qfile_itr& iterator) {
  qfile_search* const outermost = iterator.levels[iterator.parked].search.get();
  ++iterator.parked;
  if (outermost != nullptr) outermost->park();
}

// The parent of the directory to be listed keeps its handle: the way to the directory starts there.
bool can_park(const qfile_itr& iterator) noexcept { return iterator.parked + 2 < iterator.levels.size(); }

// When handles run out, outer levels give theirs up; a few stay free for opening files.
qsys_status list_level(qfile_itr& iterator, qfile_itr_level& level) {
  const std::size_t depth = iterator.levels.size() - 1;
  // Cut in place: paths can be long, and there is one for each directory.
  iterator.path.resize(level.directory_length);
  if (depth == 0) iterator.path = directory_of(iterator, level);
  qfile_provider& provider = qfile_provider_for(iterator.path.c_str());
  qfile_listing wanted{iterator.path, depth == 0 ? nullptr : iterator.levels[depth - 1].search.get(), level.is_link,
                       can_park(iterator)};
  qsys_status status = provider.list(wanted, level.search);
  while (status.condition == qsys_condition::no_handles && wanted.leave_room) {
    park_outermost(iterator);
    wanted.leave_room = can_park(iterator);
    status = provider.list(wanted, level.search);
  }
  return status;
}

qsys_status open_level(qfile_itr& iterator) {
  qfile_itr_level& level = iterator.levels.back();
  if (iterator.levels.size() > iterator.parked + most_open_searches) park_outermost(iterator);
  if (iterator.levels.size() > 1 || iterator.lists_start) return list_level(iterator, level);
  return qfile_provider_for(iterator.path.c_str()).search(iterator.path.c_str(), level.search);
}

bool is_open_above(const qfile_itr& iterator) noexcept {
  const qfile_itr_level& entered = iterator.levels.back();
  for (const qfile_itr_level& above : iterator.levels) {
    if (&above != &entered && above.has_identity && above.identity == entered.identity) return true;
  }
  return false;
}

// Whether to enter the directory of the innermost level, which is open now. Even without links a directory can be open
// above: a server may follow links itself, and Wine follows those of Unix. A level that is open above was entered
// before, so the levels are searched only for a directory that comes again.
bool may_enter(qfile_itr& iterator) {
  qfile_itr_level& level = iterator.levels.back();
  if (iterator.levels.size() == 1 && !iterator.lists_start) return true;  // only holds the start
  level.has_identity = level.search->identity(level.identity) && level.identity.tells_apart();
  const bool through_link = level.links > 0;
  if (!level.has_identity) {
    // Through links, all directories of a volume without numbers count as one; without links each is entered.
    level.identity.index_low = level.identity.index_high = 0;
    return !through_link || iterator.entered.enter(level.identity, through_link);
  }
  if (iterator.entered.contains(level.identity) && is_open_above(iterator)) return false;
  return iterator.entered.enter(level.identity, through_link);
}

void leave_level(qfile_itr& iterator) noexcept {
  const std::size_t depth = iterator.levels.size() - 1;
  if (depth > 0 && iterator.parked == depth) {
    --iterator.parked;
    const qfile_search* const below = iterator.levels[depth].search.get();
    qfile_search* const above = iterator.levels[depth - 1].search.get();
    if (below != nullptr && above != nullptr) above->resume(*below);
  }
  iterator.levels.pop_back();
}

// Pushes the directory just returned as the next level, unless the options or the links forbid it.
void enter_directory(qfile_itr& iterator) {
  const qfile_entry& entry = iterator.entry;
  if ((iterator.flags & QFILE_ITR_NO_REPARSE) != 0 && entry.is_reparse) return;
  if ((iterator.flags & QFILE_ITR_ONE_LEVEL) != 0 && iterator.levels.size() > 1) return;
  qfile_itr_level level;
  level.directory_length = iterator.path.size();
  level.links = iterator.levels.back().links + (entry.is_link ? 1 : 0);
  level.is_link = entry.is_link;
  if (level.links <= most_links) iterator.levels.push_back(std::move(level));
}

// False when the innermost level is to be skipped; `code` is set when the start fails and ends the walk.
bool start_level(qfile_itr& iterator, qerr_t& code) {
  const qsys_status status = open_level(iterator);
  if (status.ok()) return may_enter(iterator);
  const bool is_start = iterator.levels.size() == 1;
  // Neither a start that does not exist nor a link or junction that leads nowhere is something left out.
  if ((is_start || iterator.levels.back().is_link) && status.condition == qsys_condition::not_found) return false;
  if (is_start && iterator.lists_start) {
    code = status.code;
  } else {
    leave_out(iterator, is_start ? iterator.path : directory_of(iterator, iterator.levels.back()), status.code);
  }
  return false;
}

// The next entry of the innermost level that has one.
qerr_t read_entry(qfile_itr& iterator) {
  qerr_t code = QERR_OK;
  while (!iterator.levels.empty()) {
    if (!iterator.levels.back().search && !start_level(iterator, code)) {
      if (code != QERR_OK) return code;
      leave_level(iterator);
      continue;
    }
    const qfile_itr_level& level = iterator.levels.back();
    const qsys_status status = level.search->next(iterator.entry);
    if (status.condition == qsys_condition::end_of_directory) {
      leave_level(iterator);
      continue;
    }
    if (!status.ok()) {
      ++iterator.left_out.directories;
      iterator.path = directory_of(iterator, level);
      return status.code;
    }
    if (iterator.entry.name == u"." || iterator.entry.name == u"..") continue;
    iterator.path.resize(level.directory_length);
    iterator.path += iterator.separator;
    iterator.path += iterator.entry.name;
    if (skip_long_path(iterator)) continue;
    return QERR_OK;
  }
  return QERR_END;
}

// Lists the start at once, so the caller learns if it cannot be listed.
qerr_t start_directory(qfile_itr& iterator) {
  if (iterator.has_yielded || iterator.lists_start || iterator.selects || iterator.levels.size() == 1) return QERR_OK;
  const qsys_status status = open_level(iterator);
  if (status.ok() && !may_enter(iterator)) leave_level(iterator);
  return status.code;
}

qerr_t next_entry(qfile_itr& iterator) {
  const qerr_t code = read_entry(iterator);
  if (code != QERR_OK) return code;
  if (iterator.entry.is_directory) {
    enter_directory(iterator);
    return start_directory(iterator);
  }
  const qfile_itr_level& level = iterator.levels.back();
  level.search->offer(std::u16string_view(iterator.path).substr(0, level.directory_length));
  return QERR_OK;
}

void end_walk(qfile_itr& iterator, qerr_t code) noexcept {
  iterator.levels.clear();
  if (code == QERR_END || !iterator.has_yielded) return;
  iterator.left_out.ended_early = true;
  iterator.left_out.remember(iterator.path, code);
  QLOG(QLOG_WARNING, u"The walk ended early at %s. ecode %d: %s.\n", iterator.path, code, qerr_get_string(code));
}

}  // namespace

void qfile_left_out::remember(std::u16string_view path, qerr_t code) noexcept try {
  if (first.size() < most_first) first.push_back({shortened(path), code});
} catch (...) {  // NOLINT(bugprone-empty-catch): the counts tell
}

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
    code = next_entry(*iterator);
  } catch (...) {
    code = QERR_LOW_MEMORY;
  }
  if (code != QERR_OK) {
    end_walk(*iterator, code);
    return code;
  }
  iterator->has_yielded = true;
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
