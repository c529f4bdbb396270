// A file that is written in pieces and appears in its place in one step when complete.
//
// The bytes go to a new file in the folder of the target: nameless where the storage can do that (Linux), else with the
// name ".brantle-<16 hexadecimal digits>.tmp" and locked while its writer lives. It then replaces the target. A link at
// the target is replaced, not followed.
#pragma once

#include <memory>
#include <string>

#include "common/qlib/qtypes.h"

class qfile_object;
class qfile_provider;
struct qsys_status;

// Where qfile_replacement::commit_over_held has put the file.
enum class qfile_committed : std::uint8_t {
  renamed,  // at the target, in one step
  copied,   // at the target, over the old file's bytes
  beside    // under the other name; what the target holds is not the new file
};

// One thread. If it is destroyed before commit succeeded, the new file is removed and the target is unchanged.
class qfile_replacement {
 public:
  qfile_replacement() noexcept;
  qfile_replacement(const qfile_replacement&) = delete;
  qfile_replacement& operator=(const qfile_replacement&) = delete;
  ~qfile_replacement();

  // Creates the new file but no directories. On POSIX systems it gets the mode of the regular file it will replace, or
  // 0644 less the umask; devices and pipes are not replaced (code 6). QERR_ARG1 without a path, QERR_LOW_MEMORY (also
  // for a system without random numbers), or the code of the file.
  [[nodiscard]] qerr_t begin(const qchar* path) noexcept;
  // Appends. QERR_ARG1 before begin has succeeded, QERR_ARG2 without bytes, or the file's code.
  [[nodiscard]] qerr_t write(const void* bytes, std::size_t size) noexcept;
  // Moves the file into place. With `flush` its bytes reach the device before it replaces anything; without, a power
  // cut may lose it. QERR_ARG1 before begin, or the code of the file; a directory at the target is an error.
  [[nodiscard]] qerr_t commit(bool flush) noexcept;
  // commit with a flush, for a target that other programs may have open, which Windows does not let us replace. Tries
  // for 5 s, then moves the old file aside, then copies the new one over it, and last leaves the new file in the
  // target's folder as `other_name`. While it copies, a reader may meet half a file, and a crash may leave one; the new
  // file stays complete under its own name until the copy is flushed. `how` is set on success. QERR_ARG1 before begin
  // or without a name, QERR_ARG2, or the file's code.
  [[nodiscard]] qerr_t commit_over_held(const qchar* other_name, qfile_committed* how) noexcept;
  // commit with a flush under another name in the target's folder; the target stays as it is. QERR_ARG1 before begin or
  // without a name, or the file's code.
  [[nodiscard]] qerr_t commit_beside(const qchar* other_name) noexcept;
  // Removes the new file at once and frees its space.
  void abandon() noexcept;

 private:
  qsys_status put(bool flush);
  qsys_status rename_to(const std::u16string& path);
  qsys_status put_over_held(const qchar* other_name, qfile_committed& how);
  bool replace_aside();
  bool copy_over();

  qfile_provider* provider_ = nullptr;
  std::u16string target_;
  std::u16string name_;  // the new file's, empty while it has none
  std::unique_ptr<qfile_object> file_;
};

// True when the last component of `path` is the name of such a temporary file. Walks skip them.
[[nodiscard]] bool qfile_is_temporary(const qchar* path) noexcept;

// Removes such files from `directory` if their writers are gone. Files that cannot be removed stay.
void qfile_remove_temporaries(const qchar* directory) noexcept;
