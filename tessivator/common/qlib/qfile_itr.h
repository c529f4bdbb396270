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

// The longest path that a walk yields, in bytes of the UTF-8 that a report holds of it; longer ones are skipped, logged
// and counted as left out, a directory with all that is below it.
inline constexpr std::size_t QFILE_ITR_LONGEST_PATH = std::size_t{1} << 20U;

// One directory level of a walk.
struct qfile_itr_level {
  std::unique_ptr<qfile_search> search;  // null until the level is first read
  std::size_t directory_length = 0;      // units of the path buffer that name this level's directory
  std::uint32_t links = 0;               // directory links on the way here
  bool is_link = true;                   // the directory was not listed as one of its own
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

// A walk; owned by the caller, used by one thread. Its path buffer holds the current entry's full path.
struct qfile_itr {
  std::u16string path;
  std::vector<qfile_itr_level> levels;
  std::size_t parked = 0;  // so many outermost levels have given their system handles back
  std::uint32_t flags = 0;
  qchar separator = 0;
  bool lists_start = false;  // a bare drive or share root: the walk begins with its contents, not with itself
  bool selects = false;      // the start may hold wildcards
  bool has_yielded = false;  // an entry has come out
  qfile_entry entry;         // the latest entry; kept here for its buffer
  qfile_entered entered;     // the directories that were listed
  qfile_left_out left_out;   // complete once the walk has ended; gone when it is closed
};

// Opens a walk. A directory's path yields the directory itself first, then its contents; a file's path yields the file;
// wildcards in the last component select entries; a bare drive ("C:", on Linux "/") and a share root list their
// contents. A path that does not exist opens, and the first qfile_itr_next answers 1008.
[[nodiscard]] qerr_t qfile_itr_open(qfile_itr* iterator, const qchar* path) noexcept;
[[nodiscard]] qerr_t qfile_itr_open_ex(qfile_itr* iterator, const qchar* path, std::uint32_t flags) noexcept;

// The next entry. `path_out` points into the iterator until the next call; is_directory and is_symlink, which may be
// null, become 1 or 0.
// 1008 at the end; any other code is a search error and ends the walk. The first call answers a start directory that
// cannot be listed with the listing's code; any other directory that cannot is logged, counted in `left_out` and passed
// over. A directory is reported but not entered when it is open above, when the walk has entered it 16 times through
// links or 16 times without, or when the path goes through 16 directory links, so that every walk ends.
[[nodiscard]] qerr_t qfile_itr_next(qfile_itr* iterator, const qchar** path_out, std::uint32_t* is_directory,
                                    std::uint32_t* is_symlink) noexcept;

// Ends the walk and releases what it holds, `left_out` with it.
[[nodiscard]] qerr_t qfile_itr_close(qfile_itr* iterator) noexcept;
