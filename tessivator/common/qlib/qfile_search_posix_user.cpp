// Directory searches on POSIX systems.
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <memory>
#include <new>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_pattern_posix_user.h"
#include "common/qlib/qfile_place_posix_user.h"
#include "common/qlib/qfile_posix_user.h"
#include "common/qlib/qstr_name.h"

namespace {

constexpr qsys_status end_of_directory{QERR_END, qsys_condition::end_of_directory};

enum class entry_kind : char {
  file = 'f',
  directory = 'd',
  link_to_file = 'l',
  link_to_directory = 'k',
  special = 's'
};

entry_kind kind_of_mode(mode_t mode) noexcept {
  if (S_ISDIR(mode)) return entry_kind::directory;
  return S_ISREG(mode) ? entry_kind::file : entry_kind::special;
}

// A link counts as its target. A dangling link counts as a file: opening it fails and is logged, as on Windows.
entry_kind kind_of_link(int directory, const char* name) noexcept {
  struct stat about {};
  if (::fstatat(directory, name, &about, 0) != 0) return entry_kind::link_to_file;
  switch (kind_of_mode(about.st_mode)) {
    case entry_kind::directory:
      return entry_kind::link_to_directory;
    case entry_kind::file:
      return entry_kind::link_to_file;
    default:
      return entry_kind::special;
  }
}

// 0, or errno when the name is gone or cannot be queried.
int kind_of_name(int directory, const char* name, entry_kind& kind) noexcept {
  struct stat about {};
  if (::fstatat(directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  kind = S_ISLNK(about.st_mode) ? kind_of_link(directory, name) : kind_of_mode(about.st_mode);
  return 0;
}

// On common file systems the listing tells the kind; only links, and file systems that do not tell, cost a call.
entry_kind kind_of_listed(int directory, const dirent& listed) noexcept {
  switch (listed.d_type) {
    case DT_REG:
      return entry_kind::file;
    case DT_DIR:
      return entry_kind::directory;
    case DT_LNK:
      return kind_of_link(directory, listed.d_name);
    case DT_UNKNOWN: {
      entry_kind kind = entry_kind::file;
      (void)kind_of_name(directory, listed.d_name, kind);
      return kind;
    }
    default:
      return entry_kind::special;
  }
}

void fill(qfile_entry& entry, entry_kind kind, std::u16string&& name) noexcept {
  entry.name = std::move(name);
  entry.is_directory = kind == entry_kind::directory || kind == entry_kind::link_to_directory;
  entry.is_link = kind == entry_kind::link_to_file || kind == entry_kind::link_to_directory;
  entry.is_reparse = entry.is_link;
  entry.is_symlink = entry.is_link;
}

struct close_directory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

std::u16string_view parent_of(std::u16string_view path) noexcept {
  const std::size_t cut = path.rfind(u'/');
  if (cut == std::u16string_view::npos) return u".";
  return path.substr(0, cut == 0 ? 1 : cut);
}

constexpr int as_directory = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

// Open directories; return 0 or an errno value.
int open_at(int from, const char* name, int how, qsys_descriptor& out) noexcept {
  out = qsys_descriptor(qsys_retry([&] { return ::openat(from, name, as_directory | how); }));
  return out.valid() ? 0 : errno;
}

int open_by_path(std::u16string_view path, int how, qsys_descriptor& out) {
  qfile_place place;
  const int error = place.reach(std::u16string(path).c_str());
  return error != 0 ? error : open_at(place.directory(), place.name(), how, out);
}

int identity_of(int fd, qfile_identity& out) noexcept {
  struct stat about {};
  if (::fstat(fd, &about) != 0) return errno;
  out = {about.st_dev, about.st_ino, 0};
  return 0;
}

int open_stream(qsys_descriptor&& fd, std::shared_ptr<DIR>& out) {
  std::unique_ptr<DIR, close_directory> stream(::fdopendir(fd.get()));
  if (!stream) return errno;
  (void)fd.release();
  out = std::move(stream);
  return 0;
}

// Base of the searches of this provider.
class local_search : public qfile_search {
 public:
  // `path` names an entry of this search.
  virtual int open_entry(std::u16string_view path, int how, qsys_descriptor& out) {
    return open_by_path(path, how, out);
  }
  // Of the directory that is searched; negative when there is none.
  [[nodiscard]] virtual int descriptor() const noexcept { return -1; }
};

class directory_search final : public local_search {
 public:
  directory_search(std::shared_ptr<DIR> directory, const qfile_identity& identity, std::u16string pattern) noexcept
      : directory_(std::move(directory)), identity_(identity), pattern_(std::move(pattern)) {}

  qsys_status next(qfile_entry& entry) override {
    std::string_view name;
    entry_kind kind = entry_kind::special;
    for (;;) {
      const qsys_status status = is_parked_ ? take_parked(kind, name) : read(kind, name);
      if (!status.ok()) return status;
      if (kind == entry_kind::special) continue;
      std::u16string wide = qstr_name_from_bytes(name);
      if (!pattern_.empty() && !qfile_name_matches(pattern_, wide)) continue;
      fill(entry, kind, std::move(wide));
      return {};
    }
  }

  bool identity(qfile_identity& out) const noexcept override {
    out = identity_;
    return true;
  }

  // Each entry as kind, name and a zero.
  void park() override {
    std::string_view name;
    entry_kind kind = entry_kind::special;
    while (!is_parked_) {
      after_parked_ = read(kind, name);
      if (!after_parked_.ok()) {
        is_parked_ = true;
      } else if (kind != entry_kind::special) {
        parked_ += static_cast<char>(kind);
        parked_ += name;
        parked_ += '\0';
      }
    }
    directory_.reset();
    parked_.shrink_to_fit();
  }

  // A directory that is no link has its parent in "..".
  void resume(const qfile_search& below) noexcept override {
    const int from = static_cast<const local_search&>(below).descriptor();
    qsys_descriptor up;
    if (taken_ < parked_.size() && from >= 0 && open_at(from, "..", 0, up) == 0) (void)take_back(std::move(up));
  }

  void offer(std::u16string_view directory) override {
    if (directory_) qfile_offer_folder(directory, directory_);
  }

  int open_entry(std::u16string_view path, int how, qsys_descriptor& out) override {
    if (!directory_) {
      qsys_descriptor again;
      int error = open_by_path(parent_of(path), 0, again);
      if (error == 0) error = take_back(std::move(again));
      if (error != 0) return error;
    }
    std::string name;
    if (!qstr_name_to_bytes(path.substr(path.rfind(u'/') + 1), name)) return QFILE_NO_SUCH_NAME;
    return open_at(descriptor(), name.c_str(), how, out);
  }

  [[nodiscard]] int descriptor() const noexcept override { return directory_ ? ::dirfd(directory_.get()) : -1; }

 private:
  qsys_status read(entry_kind& kind, std::string_view& name) noexcept {
    errno = 0;
    const dirent* const listed = ::readdir(directory_.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (listed == nullptr) return errno == 0 ? end_of_directory : qfile_status_of(errno);
    name = listed->d_name;
    kind = name == "." || name == ".." ? entry_kind::special : kind_of_listed(::dirfd(directory_.get()), *listed);
    return {};
  }

  qsys_status take_parked(entry_kind& kind, std::string_view& name) noexcept {
    if (taken_ >= parked_.size()) return after_parked_;
    kind = static_cast<entry_kind>(parked_[taken_]);
    name = parked_.c_str() + taken_ + 1;
    taken_ += name.size() + 2;
    return {};
  }

  // The path may lead to another directory by now.
  int take_back(qsys_descriptor&& fd) noexcept try {
    qfile_identity found;
    const int error = identity_of(fd.get(), found);
    if (error != 0) return error;
    if (found != identity_) return QFILE_NO_SUCH_NAME;
    return open_stream(std::move(fd), directory_);
  } catch (...) {
    return ENOMEM;
  }

  std::shared_ptr<DIR> directory_;  // null when parked
  qfile_identity identity_;
  std::u16string pattern_;  // empty: every name
  bool is_parked_ = false;
  std::string parked_;
  std::size_t taken_ = 0;
  qsys_status after_parked_ = end_of_directory;
};

// Returns the single entry that was named; nothing if it is a special file.
class single_search final : public local_search {
 public:
  single_search(entry_kind kind, std::u16string name) noexcept
      : kind_(kind), name_(std::move(name)), done_(kind == entry_kind::special) {}
  qsys_status next(qfile_entry& entry) override {
    if (done_) return end_of_directory;
    done_ = true;
    fill(entry, kind_, std::move(name_));
    return {};
  }

 private:
  entry_kind kind_;
  std::u16string name_;
  bool done_;
};

// Descriptors that the current file and its readers need besides the walk.
constexpr rlim_t room_for_files = 8;

// The system hands out the lowest free number, so all below it are in use.
bool leaves_room(int fd) noexcept {
  rlimit most{};
  if (::getrlimit(RLIMIT_NOFILE, &most) != 0 || most.rlim_cur == RLIM_INFINITY) return true;
  return static_cast<rlim_t>(fd) + room_for_files < most.rlim_cur;
}

qsys_status search_opened(qsys_descriptor&& fd, std::u16string pattern, std::unique_ptr<qfile_search>& out) {
  qfile_identity identity;
  int error = identity_of(fd.get(), identity);
  std::shared_ptr<DIR> stream;
  if (error == 0) error = open_stream(std::move(fd), stream);
  if (error != 0) return qfile_status_of(error);
  out = std::make_unique<directory_search>(std::move(stream), identity, std::move(pattern));
  return {};
}

}  // namespace

qsys_status qfile_posix_list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) {
  const int how = wanted.is_link ? 0 : O_NOFOLLOW;
  auto* const above = static_cast<local_search*>(wanted.above);
  qsys_descriptor fd;
  const int error = above != nullptr ? above->open_entry(wanted.path, how, fd) : open_by_path(wanted.path, how, fd);
  if (error != 0) return qfile_status_of(error);
  if (wanted.leave_room && !leaves_room(fd.get())) return qfile_status_of(EMFILE);
  return search_opened(std::move(fd), {}, out);
}

qsys_status qfile_posix_search(const qchar* pattern, std::unique_ptr<qfile_search>& out) {
  const std::u16string_view whole(pattern);
  const std::u16string_view last = whole.substr(whole.rfind(u'/') + 1);
  qfile_place place;
  int error = place.reach(pattern);
  entry_kind kind = entry_kind::special;
  if (error == 0) error = kind_of_name(place.directory(), place.name(), kind);
  if (error == 0) {
    out = std::make_unique<single_search>(kind, std::u16string(last));
    return {};
  }
  if (error != QFILE_NO_SHARES && last.find_first_of(u"*?") != std::u16string_view::npos) {
    qsys_descriptor fd;
    error = open_by_path(parent_of(whole), 0, fd);
    if (error == 0) return search_opened(std::move(fd), std::u16string(last), out);
  }
  return qfile_status_of(error == ENOTDIR ? ENOENT : error);
}
