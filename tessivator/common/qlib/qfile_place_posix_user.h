// Paths of any length on a system that takes 4,095 bytes at a time.
#pragma once

#include <dirent.h>
#include <fcntl.h>

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qfile_posix_user.h"

// A path for the system calls that end in "at": name() relative to directory(). A short path is used as it is. A long
// one is opened step by step, or starts from the folder that a walk offered last.
class qfile_place {
 public:
  // 0 or an errno value; QFILE_NO_SHARES for a path with two leading backslashes. May throw std::bad_alloc.
  [[nodiscard]] int reach(const qchar* path);

  [[nodiscard]] int directory() const noexcept;
  [[nodiscard]] const char* name() const noexcept { return path_.c_str() + from_; }

 private:
  int step(std::size_t length) noexcept;

  std::string path_;
  std::size_t from_ = 0;
  qsys_descriptor passed_;
  std::shared_ptr<DIR> offered_;
};

// Lets long paths in `path` start from `folder` while the walk keeps it open. The process remembers one such folder.
// Short paths are ignored: they need no help.
void qfile_offer_folder(std::u16string_view path, const std::shared_ptr<DIR>& folder);
