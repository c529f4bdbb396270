#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <new>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_posix_user.h"
#include "common/qlib/qstr_name.h"

namespace {

constexpr qsys_status END_OF_DIRECTORY{QERR_END, qsys_condition::end_of_directory};

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

// A link is what it leads to. One that leads nowhere is a file, whose open then fails and is told, as on Windows.
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

// False when the name has gone or cannot be asked about.
bool kind_of_name(int directory, const char* name, entry_kind& kind) noexcept {
  struct stat about {};
  if (::fstatat(directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0) return false;
  kind = S_ISLNK(about.st_mode) ? kind_of_link(directory, name) : kind_of_mode(about.st_mode);
  return true;
}

// The listing itself tells the kind on all common file systems; only links and silent file systems cost a call.
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

class directory_search final : public qfile_search {
 public:
  directory_search(DIR* directory, std::u16string pattern) noexcept
      : directory_(directory), pattern_(std::move(pattern)) {}

  qsys_status next(qfile_entry& entry) override {
    std::string_view name;
    entry_kind kind = entry_kind::special;
    for (;;) {
      const qsys_status status = directory_ ? read(kind, name) : take_parked(kind, name);
      if (!status.ok()) return status;
      if (kind == entry_kind::special) continue;
      std::u16string wide = qstr_name_from_bytes(name);
      if (!pattern_.empty() && !qfile_name_matches(pattern_, wide)) continue;
      fill(entry, kind, std::move(wide));
      return {};
    }
  }

  // Each entry as its kind, its name and a zero, one after the other.
  void park() override {
    std::string_view name;
    entry_kind kind = entry_kind::special;
    while (directory_) {
      after_parked_ = read(kind, name);
      if (!after_parked_.ok()) {
        directory_.reset();
      } else if (kind != entry_kind::special) {
        parked_ += static_cast<char>(kind);
        parked_ += name;
        parked_ += '\0';
      }
    }
    parked_.shrink_to_fit();
  }

 private:
  qsys_status read(entry_kind& kind, std::string_view& name) noexcept {
    errno = 0;
    const dirent* const listed = ::readdir(directory_.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (listed == nullptr) return errno == 0 ? END_OF_DIRECTORY : qfile_status_of(errno);
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

  std::unique_ptr<DIR, close_directory> directory_;
  std::u16string pattern_;  // empty: every name
  std::string parked_;
  std::size_t taken_ = 0;
  qsys_status after_parked_ = END_OF_DIRECTORY;
};

// Yields the one entry that was asked for by its own name; none when that is a special file.
class single_search final : public qfile_search {
 public:
  single_search(entry_kind kind, std::u16string name) noexcept
      : kind_(kind), name_(std::move(name)), done_(kind == entry_kind::special) {}
  qsys_status next(qfile_entry& entry) override {
    if (done_) return END_OF_DIRECTORY;
    done_ = true;
    fill(entry, kind_, std::move(name_));
    return {};
  }

 private:
  entry_kind kind_;
  std::u16string name_;
  bool done_;
};

qsys_status open_directory(std::u16string_view directory, std::u16string pattern, std::unique_ptr<qfile_search>& out) {
  std::string name;
  if (!qfile_native_path(std::u16string(directory).c_str(), name)) return qfile_status_of(QFILE_NO_SUCH_NAME);
  std::unique_ptr<DIR, close_directory> opened(::opendir(name.c_str()));
  if (!opened) return qfile_status_of(errno);
  auto search = std::make_unique<directory_search>(opened.get(), std::move(pattern));
  (void)opened.release();
  out = std::move(search);
  return {};
}

}  // namespace

bool qfile_name_matches(std::u16string_view pattern, std::u16string_view name) noexcept {
  std::size_t p = 0;
  std::size_t n = 0;
  std::size_t star = std::u16string_view::npos;
  std::size_t resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == u'*') {
      star = p++;
      resume = n;
    } else if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (star != std::u16string_view::npos) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == u'*') ++p;
  return p == pattern.size();
}

qsys_status qfile_posix_list(const qchar* directory, std::unique_ptr<qfile_search>& out) {
  return open_directory(directory, {}, out);
}

qsys_status qfile_posix_search(const qchar* pattern, std::unique_ptr<qfile_search>& out) {
  const std::u16string_view whole(pattern);
  const std::size_t cut = whole.rfind(u'/');
  const std::u16string_view last = cut == std::u16string_view::npos ? whole : whole.substr(cut + 1);
  std::string name;
  if (!qfile_native_path(pattern, name)) return qfile_status_of(QFILE_NO_SUCH_NAME);
  entry_kind kind = entry_kind::special;
  if (kind_of_name(AT_FDCWD, name.c_str(), kind)) {
    out = std::make_unique<single_search>(kind, std::u16string(last));
    return {};
  }
  const int error = errno;
  if (last.find_first_of(u"*?") == std::u16string_view::npos) return qfile_status_of(error);
  if (cut == std::u16string_view::npos) return open_directory(u".", std::u16string(last), out);
  return open_directory(whole.substr(0, cut == 0 ? 1 : cut), std::u16string(last), out);
}
