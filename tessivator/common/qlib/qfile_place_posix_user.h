// Paths of any length for a system that takes 4,095 bytes of them at once.
#pragma once

#include <dirent.h>
#include <fcntl.h>

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qfile_posix_user.h"

// Where the calls that end in "at" find a path: name() below directory(). A short path is taken as it is. A longer one
// is opened in pieces, or starts from the folder that a walk offered last.
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

// Lets long paths of what lies in `path` start from `folder`, as long as the owner keeps it open; one folder at a time
// is remembered for the whole process. Paths that the system takes are not worth it and are ignored.
void qfile_offer_folder(std::u16string_view path, const std::shared_ptr<DIR>& folder);
