#include "common/qlib/qfile_place_posix_user.h"

#include <limits.h>

#include <mutex>
#include <new>

#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"

namespace {

constexpr std::size_t longest = PATH_MAX - 1;

// A deep folder that a walk keeps open.
struct offered_folder {
  std::mutex lock;
  std::string path;
  std::weak_ptr<DIR> folder;
};

offered_folder& offered() noexcept {
  static offered_folder folder;
  return folder;
}

bool same(const std::weak_ptr<DIR>& left, const std::shared_ptr<DIR>& right) noexcept {
  return !left.owner_before(right) && !right.owner_before(left);
}

std::shared_ptr<DIR> take_offered(std::string_view path) noexcept {
  offered_folder& last = offered();
  const std::lock_guard hold(last.lock);
  return last.path == path ? last.folder.lock() : nullptr;
}

}  // namespace

void qfile_offer_folder(std::u16string_view path, const std::shared_ptr<DIR>& folder) {
  constexpr std::size_t most_bytes_a_unit = 3;
  if (path.size() <= (longest - NAME_MAX) / most_bytes_a_unit) return;
  offered_folder& last = offered();
  const std::lock_guard hold(last.lock);
  if (same(last.folder, folder)) return;
  std::string bytes;
  if (!qstr_name_to_bytes(path, bytes)) return;
  last.path = std::move(bytes);
  last.folder = folder;
}

int qfile_place::directory() const noexcept {
  if (offered_) return ::dirfd(offered_.get());
  return passed_.valid() ? passed_.get() : AT_FDCWD;
}

// Opens the next `length` bytes of the path; a separator follows them.
int qfile_place::step(std::size_t length) noexcept {
  path_[from_ + length] = '\0';
  const int fd = qsys_retry([&] { return ::openat(directory(), name(), O_PATH | O_DIRECTORY | O_CLOEXEC); });
  path_[from_ + length] = '/';
  if (fd < 0) return errno;
  passed_ = qsys_descriptor(fd);
  from_ += length + 1;
  return 0;
}

int qfile_place::reach(const qchar* path) {
  if (qpath_is_unc(path)) return QFILE_NO_SHARES;
  if (!qfile_native_path(path, path_)) return QFILE_NO_SUCH_NAME;
  if (path_.size() <= longest) return 0;
  while (path_.back() == '/' && path_.size() > 1) path_.pop_back();
  const std::size_t last = path_.rfind('/');
  if (last != std::string::npos) offered_ = take_offered(std::string_view(path_).substr(0, last));
  if (offered_) {
    from_ = last + 1;
    return 0;
  }
  while (path_.size() - from_ > longest) {
    const std::size_t cut = path_.rfind('/', from_ + longest);
    if (cut == std::string::npos || cut <= from_) return ENAMETOOLONG;
    const int error = step(cut - from_);
    if (error != 0) return error;
    while (path_[from_] == '/') ++from_;
  }
  return 0;
}
