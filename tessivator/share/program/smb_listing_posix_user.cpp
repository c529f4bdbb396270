#include "share/program/smb_listing_posix_user.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>

#include "share/program/smb_watch_posix_user.h"

namespace {

// libsmbclient fetches a whole directory when it opens it.
class open_directory {
 public:
  open_directory(const smb_server& server, std::string_view path) : context_(server.context()) {
    errno = 0;
    handle_ = smbc_getFunctionOpendir(context_)(context_, server.url(path).c_str());
  }
  open_directory(const open_directory&) = delete;
  open_directory& operator=(const open_directory&) = delete;
  ~open_directory() {
    const int error = errno;
    if (handle_ != nullptr) (void)smbc_getFunctionClosedir(context_)(context_, handle_);
    errno = error;
  }
  [[nodiscard]] bool is_open() const noexcept { return handle_ != nullptr; }
  // Null at the end, and with an errno value when there should be more.
  const libsmb_file_info* next(struct stat& about) noexcept {
    errno = 0;
    return smbc_getFunctionReaddirPlus2(context_)(context_, handle_, &about);
  }

 private:
  SMBCCTX* context_;
  SMBCFILE* handle_;
};

}  // namespace

int smb_listing::read(const smb_server& server, std::string_view path) {
  open_directory directory(server, path);
  // Where memory ends, so does what is handed out, without a word but this; or the connection ends, for its buffers
  // need memory too.
  if (errno == ENOMEM || (!directory.is_open() && smb_memory_was_short())) return ENOMEM;
  if (!directory.is_open()) return server.failure();
  struct stat about {};
  while (const libsmb_file_info* const listed = directory.next(about)) {
    if (const int error = add(*listed, about.st_ino); error != 0) return error;
  }
  if (errno != 0) return server.failure();
  remove_repeated_names();
  return 0;
}

// Keeps the first of equal names. Names are stored in the order in which they came, so that their places give it back.
void smb_listing::remove_repeated_names() {
  const auto came_first = [](const entry& a, const entry& b) { return a.name_at < b.name_at; };
  std::sort(entries_.begin(), entries_.end(), [&](const entry& a, const entry& b) {
    const int order = name_of(a).compare(name_of(b));
    return order != 0 ? order < 0 : came_first(a, b);
  });
  const auto same = [this](const entry& a, const entry& b) { return name_of(a) == name_of(b); };
  entries_.erase(std::unique(entries_.begin(), entries_.end(), same), entries_.end());
  std::sort(entries_.begin(), entries_.end(), came_first);
}

int smb_listing::add(const libsmb_file_info& listed, std::uint64_t number) {
  const std::string_view name(listed.name);
  if (name == ".") directory_ = number;
  if (name.empty() || name == "." || name == "..") return 0;
  if (entries_.size() == QSHARE_MOST_NAMES) return EOVERFLOW;
  if (name.size() > QSHARE_MOST_TEXT || names_.size() > std::numeric_limits<std::uint32_t>::max() - name.size()) {
    return EOVERFLOW;
  }
  entries_.push_back(
      {number, static_cast<std::uint32_t>(names_.size()), static_cast<std::uint16_t>(name.size()), listed.attrs});
  names_ += name;
  return 0;
}

void smb_listing::append_from(std::uint32_t from, qshare_frame& answer) const {
  auto next = entries_.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(from, entries_.size()));
  // All that goes out at once must fit, whatever its length; one entry always does.
  auto end = next;
  for (std::size_t bytes = 0; end != entries_.end() && bytes < QSHARE_MOST_ENTRIES; ++end)
    bytes += end->name_size + 14U;
  answer.le(static_cast<std::uint8_t>(end != entries_.end()));
  for (; next != end; ++next) {
    answer.le(static_cast<std::uint32_t>(next->attributes));
    answer.le(next->number);
    answer.text(name_of(*next));
  }
}
