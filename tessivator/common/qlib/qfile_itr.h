// Depth-first, pre-order directory walk over the file providers.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qfile_entered.h"
#include "common/qlib/qfile_provider.h"
#include "common/qlib/qtypes.h"

// Descend only from level 0; do not descend into directories that are links or junctions.
inline constexpr std::uint32_t QFILE_ITR_ONE_LEVEL = 1;
inline constexpr std::uint32_t QFILE_ITR_NO_REPARSE = 2;

// The longest path that a walk returns, in bytes of its UTF-8 in a report. Longer paths are skipped, logged and
// counted, a directory together with everything below it.
inline constexpr std::size_t QFILE_ITR_LONGEST_PATH = std::size_t{1} << 20U;

// One directory level of a walk.
struct qfile_itr_level {
  std::unique_ptr<qfile_search> search;  // null until the level is first read
  std::size_t directory_length = 0;      // units of the path buffer that name this level's directory
  std::uint32_t links = 0;               // directory links on the way here
  bool is_link = true;                   // listed as a link, or not listed
  bool has_identity = false;
  qfile_identity identity;
};

// What a scan did not see. The walk counts directories that could not be listed completely, and paths that are too
// long; other files are counted by whoever opens them.
struct qfile_left_out {
  struct place {
    std::u16string path;
    qerr_t code;
  };
  static constexpr std::size_t most_first = 10;

  std::uint64_t directories = 0;
  std::uint64_t files = 0;
  bool ended_early = false;  // an error ended the walk
  std::vector<place> first;  // the first of all of these, in the walk's order; very long paths are shortened

  // Adds to `first` while there is room, and memory.
  void remember(std::u16string_view path, qerr_t code) noexcept;
};

// A walk. The caller owns it; one thread. The path buffer holds the full path of the current entry.
struct qfile_itr {
  std::u16string path;
  std::vector<qfile_itr_level> levels;
  std::size_t parked = 0;  // this many outermost levels have released their system handles
  std::uint32_t flags = 0;
  qchar separator = 0;
  bool lists_start = false;  // a bare drive or share root: the walk begins with its contents, not with itself
  bool selects = false;      // the start may hold wildcards
  bool has_yielded = false;  // an entry was returned
  qfile_entry entry;         // the latest entry; kept here for its buffer
  qfile_entered entered;     // the directories that were listed
  qfile_left_out left_out;   // complete when the walk has ended; cleared by close
};

// Opens a walk. A path to a directory returns the directory first, then its contents; a path to a file returns the
// file; wildcards in the last component select entries; a bare drive ("C:", on Linux "/") or a share root returns its
// contents. A path that does not exist can be opened: the first qfile_itr_next then returns 1008.
[[nodiscard]] qerr_t qfile_itr_open(qfile_itr* iterator, const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_itr_open_ex(qfile_itr* iterator, const qchar* path, std::uint32_t flags) noexcept;

// The next entry. `path_out` points into the iterator until the next call. is_directory and is_symlink become 1 or 0;
// they may be null.
// 1008 at the end; any other code is a search error and ends the walk. If the start directory cannot be listed, the
// first call returns that code; any other directory that cannot be listed is logged, counted in `left_out` and skipped.
// A directory is returned but not entered when it is open above, when the walk has entered it 16 times through links or
// 16 times without, or when the path has gone through 16 directory links. So every walk ends.
[[nodiscard]] qerr_t qfile_itr_next(qfile_itr* iterator, const qchar** path_out, std::uint32_t* is_directory,
                                    std::uint32_t* is_symlink) noexcept;

// Ends the walk and frees everything, including `left_out`.
[[nodiscard]] qerr_t qfile_itr_close(qfile_itr* iterator) noexcept;
