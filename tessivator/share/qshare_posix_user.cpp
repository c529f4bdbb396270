// Files on network shares, read-only, as a scan needs them. Writing gives EROFS.
#include "share/qshare.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_pattern_posix_user.h"
#include "common/qlib/qfile_posix_user.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "share/qshare_connections_posix_user.h"

namespace {

constexpr qsys_status end_of_directory{QERR_END, qsys_condition::end_of_directory};

// Every request costs a round trip. Opening a file also returns its first bytes, enough for headers and most small
// files; sequential readers get larger and larger pieces while they arrive quickly.
constexpr std::uint32_t first_read = qfile_positioned::largest_block;
constexpr std::uint32_t random_read = std::uint32_t{64} << 10U;
constexpr std::uint32_t largest_read = QSHARE_MOST_READ;
constexpr std::chrono::milliseconds quick(500);

// The limit on components of a path on a share, so that a server that invents directories is left.
constexpr std::size_t most_levels = 256;

using session_ptr = std::shared_ptr<qshare_session>;

qsys_status status_of_system(std::uint32_t code) noexcept {
  if (code == QSHARE_OK) return {};
  const bool missing = code == QSHARE_BAD_NETPATH || code == QSHARE_BAD_NET_NAME;
  return {qerr_from_win32(code), missing ? qsys_condition::not_found : qsys_condition::none};
}

qsys_status status_of(int error) noexcept { return error == 0 ? qsys_status{} : qfile_status_of(error); }

// The session for `path`, and the path within its share.
qsys_status locate(const qchar* path, session_ptr& session, qshare_subject& subject) {
  qshare_name name;
  if (!qshare_parse(path, name)) return qfile_status_of(QFILE_NO_SUCH_NAME);
  if (name.levels > most_levels) return qfile_status_of(ENAMETOOLONG);
  const qsys_status status = status_of_system(qshare_find(name, session));
  if (status.ok()) subject.path = std::move(name.path);
  return status;
}

void take_info(const qshare_info& about, qfile_info& out) noexcept {
  out.size = about.size;
  out.last_write_time = qfile_local_time(about.write_seconds, about.write_nanoseconds);
  out.creation_time = out.last_write_time;  // the creation time would cost another request
}

// SMB's changed time does not come with the open.
void take_stamp(const qshare_info& about, qfile_stamp& out) noexcept {
  out = {about.size, about.number, {about.write_seconds, about.write_nanoseconds}, {}};
}

// A file keeps the state of its open: it ends at that size.
class share_file final : public qfile_positioned {
 public:
  share_file(session_ptr session, qshare_subject&& subject, const qshare_info& about, const qshare_number& number,
             std::string&& first) noexcept
      : qfile_positioned(!about.is_directory),
        session_(std::move(session)),
        subject_(std::move(subject)),
        about_(about),
        number_(number),
        piece_(std::move(first)) {}
  ~share_file() override { session_->close(number_); }
  share_file(const share_file&) = delete;
  share_file& operator=(const share_file&) = delete;

  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return qfile_status_of(EBADF); }

  qsys_status size(std::uint64_t& bytes) noexcept override {
    bytes = about_.size;
    return {};
  }

  qsys_status truncate(std::uint64_t) noexcept override { return qfile_status_of(EBADF); }

  qsys_status info(qfile_info& out) noexcept override {
    take_info(about_, out);
    return {};
  }

  qsys_status stamp(qfile_stamp& out) noexcept override {
    take_stamp(about_, out);
    return {};
  }

 private:
  qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override
      try {
    done = 0;
    if (about_.is_directory) return qfile_status_of(EISDIR);
    if (offset >= about_.size) return {};
    auto* const destination = static_cast<std::byte*>(buffer);
    size =
        static_cast<std::uint32_t>(std::min({std::uint64_t{size}, about_.size - offset, std::uint64_t{largest_read}}));
    if (give(offset, destination, size, done)) return {};
    const std::uint32_t length = offset == fetched_to_ ? next_size() : random_read;
    if (size >= length) return fetch(offset, destination, size, done);
    std::uint32_t got = 0;
    piece_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(length, about_.size - offset)));
    piece_at_ = offset;
    const qsys_status status = fetch(offset, reinterpret_cast<std::byte*>(piece_.data()), piece_.size(), got);
    piece_.resize(got);
    if (status.ok()) (void)give(offset, destination, size, done);
    return status;
  } catch (...) {
    return {QERR_LOW_MEMORY, qsys_condition::none};
  }

  // The part of [offset, offset + wanted) that is already here.
  bool give(std::uint64_t offset, std::byte* destination, std::uint32_t wanted, std::uint32_t& count) noexcept {
    if (offset < piece_at_ || offset - piece_at_ >= piece_.size()) return false;
    const auto skipped = static_cast<std::size_t>(offset - piece_at_);
    count = static_cast<std::uint32_t>(std::min<std::size_t>(wanted, piece_.size() - skipped));
    std::memcpy(destination, piece_.data() + skipped, count);
    return true;
  }

  // A slow line gets small pieces, since each must arrive within the time limit.
  std::uint32_t next_size() noexcept {
    sequential_ = last_quick_ ? std::min(sequential_ * 2, largest_read) : std::max(sequential_ / 2, random_read);
    return sequential_;
  }

  // One request. Fewer bytes than the file had at its open are a failure, not its end.
  qsys_status fetch(std::uint64_t offset, std::byte* destination, std::size_t size, std::uint32_t& count) {
    const auto start = std::chrono::steady_clock::now();
    std::uint32_t got = 0;
    const int error =
        session_->read(subject_, about_, number_, offset, destination, static_cast<std::uint32_t>(size), got);
    last_quick_ = std::chrono::steady_clock::now() - start < quick;
    if (error != 0) return qfile_status_of(error);
    if (got < size) return qfile_status_of(EIO);
    count = got;
    fetched_to_ = offset + got;
    return {};
  }

  session_ptr session_;
  qshare_subject subject_;
  qshare_info about_;
  qshare_number number_;
  std::string piece_;  // the bytes fetched last, from `piece_at_` on; in the beginning the file's first
  std::uint64_t piece_at_ = 0;
  std::uint64_t fetched_to_ = first_read;
  std::uint32_t sequential_ = first_read;
  bool last_quick_ = true;
};

void fill_entry(qfile_entry& entry, std::u16string&& name, bool is_directory, bool is_reparse) noexcept {
  entry.name = std::move(name);
  entry.is_directory = is_directory;
  entry.is_reparse = is_reparse;
  entry.is_symlink = false;
  entry.is_link = is_directory && is_reparse;
  // Some servers follow links themselves and show only directories.
}

// The names of a directory that have come so far, in case it has to be listed again after a loss. A digest of 64 bits
// stands for a name: that two of a million names have the same is less likely than one in ten million.
class seen_names {
 public:
  explicit seen_names(qshare_session& session) noexcept : session_(session) {}
  ~seen_names() { forget(); }
  seen_names(const seen_names&) = delete;
  seen_names& operator=(const seen_names&) = delete;

  // The list begins again: from now on what came before is removed from it.
  void begin_again() {
    std::sort(digests_.begin(), digests_.end());
    sorted_ = digests_.size();
  }
  void remove_from(std::vector<qshare_entry>& entries) const {
    const auto end_of_sorted = digests_.begin() + static_cast<std::ptrdiff_t>(sorted_);
    std::erase_if(entries, [&](const qshare_entry& one) {
      return std::binary_search(digests_.begin(), end_of_sorted, digest(one));
    });
  }
  // False when the session holds too many names.
  [[nodiscard]] bool add(const std::vector<qshare_entry>& entries) {
    for (const qshare_entry& one : entries) {
      digests_.push_back(digest(one));
      if (session_.remember(1)) continue;
      digests_.pop_back();
      return false;
    }
    return true;
  }
  void forget() noexcept {
    session_.forget(digests_.size());
    digests_ = {};
    sorted_ = 0;
  }

 private:
  static std::uint64_t digest(const qshare_entry& entry) noexcept { return std::hash<std::string>()(entry.name); }

  qshare_session& session_;
  std::vector<std::uint64_t> digests_;
  std::size_t sorted_ = 0;  // the first so many are in order
};

class share_search final : public qfile_search {
 public:
  share_search(session_ptr session, qshare_subject&& subject, std::u16string pattern) noexcept
      : session_(std::move(session)), subject_(std::move(subject)), pattern_(std::move(pattern)), seen_(*session_) {}
  ~share_search() override { session_->close(list_); }
  share_search(const share_search&) = delete;
  share_search& operator=(const share_search&) = delete;

  // The first entries, or the next.
  int fetch() {
    if (const int error = session_->list(subject_, list_, received_, batch_); error != 0) return error;
    next_ = 0;
    if (batch_.entries.size() > QSHARE_MOST_NAMES - batch_.first) return EOVERFLOW;
    if (batch_.first < received_) seen_.begin_again();
    received_ = batch_.first + static_cast<std::uint32_t>(batch_.entries.size());
    seen_.remove_from(batch_.entries);
    if (batch_.more) return seen_.add(batch_.entries) ? 0 : EOVERFLOW;
    seen_.forget();  // nothing more will be asked for
    return 0;
  }

  qsys_status next(qfile_entry& entry) override {
    for (;;) {
      if (session_->dead()) return qfile_status_of(ENOTCONN);  // what is left of the walk could not be read
      if (next_ == batch_.entries.size()) {
        if (!batch_.more) return end_of_directory;
        if (const int error = fetch(); error != 0) return qfile_status_of(error);
        continue;
      }
      const qshare_entry& listed = batch_.entries[next_++];
      // A name with a separator is not a name.
      if (listed.name == "." || listed.name == ".." || listed.name.find_first_of("/\\") != listed.name.npos) continue;
      std::u16string name = qstr_name_from_bytes(listed.name);
      if (!pattern_.empty() && !qfile_name_matches(pattern_, name)) continue;
      fill_entry(entry, std::move(name), (listed.attributes & QSHARE_DIRECTORY) != 0,
                 (listed.attributes & QSHARE_REPARSE_POINT) != 0);
      return {};
    }
  }

  // A walk never leaves its share.
  bool identity(qfile_identity& out) const noexcept override {
    out = {0, batch_.directory, 0};
    return batch_.directory != 0;
  }

 private:
  session_ptr session_;
  qshare_subject subject_;
  std::u16string pattern_;  // empty: every name
  qshare_number list_;
  qshare_session::listing batch_;
  std::size_t next_ = 0;
  std::uint32_t received_ = 0;  // of the list, in all batches
  seen_names seen_;             // after session_, which it uses
};

// Returns the single entry that was named. Holds the session so that the walk below uses it.
class share_single final : public qfile_search {
 public:
  share_single(session_ptr session, std::u16string name, bool is_directory) noexcept
      : session_(std::move(session)), name_(std::move(name)), is_directory_(is_directory) {}
  qsys_status next(qfile_entry& entry) override {
    if (session_->dead()) return qfile_status_of(ENOTCONN);
    if (done_) return end_of_directory;
    done_ = true;
    fill_entry(entry, std::move(name_), is_directory_, false);
    return {};
  }

 private:
  session_ptr session_;
  std::u16string name_;
  bool is_directory_;
  bool done_ = false;
};

qsys_status list_directory(const qchar* directory, std::u16string pattern, std::unique_ptr<qfile_search>& out) {
  session_ptr session;
  qshare_subject subject;
  const qsys_status status = locate(directory, session, subject);
  if (!status.ok()) return status;
  auto search = std::make_unique<share_search>(std::move(session), std::move(subject), std::move(pattern));
  if (const int error = search->fetch(); error != 0) return qfile_status_of(error);
  out = std::move(search);
  return {};
}

class share_provider final : public qfile_provider {
 public:
  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override;
  qsys_status create_exclusive(const qchar*, std::unique_ptr<qfile_object>&) override { return read_only(); }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override;
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    return list_directory(wanted.path.data(), {}, out);
  }
  qsys_status exists(const qchar* path) override {
    qshare_info about;
    return ask(path, about);
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    qshare_info about;
    const qsys_status status = ask(path, about);
    if (status.ok()) take_info(about, out);
    return status;
  }
  qsys_status rename(const qchar*, const qchar*) override { return read_only(); }
  qsys_status remove(const qchar*) override { return read_only(); }
  qsys_status make_directory(const qchar*) override { return read_only(); }
  qsys_status remove_directory(const qchar*) override { return read_only(); }
  qsys_status copy(const qchar*, const qchar*, bool) override { return read_only(); }
  qsys_status compress(const qchar*) override { return {}; }
  qsys_status full_path(const qchar* path, std::u16string& out) override {
    return qfile_local_provider().full_path(path, out);  // knows both kinds of paths
  }

 private:
  static qsys_status read_only() noexcept { return qfile_status_of(EROFS); }
  static qsys_status ask(const qchar* path, qshare_info& about) {
    session_ptr session;
    qshare_subject subject;
    const qsys_status status = locate(path, session, subject);
    return status.ok() ? status_of(session->information(subject, about)) : status;
  }
};

qsys_status share_provider::open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) {
  if ((flags & QFILE_WRITE) != 0) return read_only();
  session_ptr session;
  qshare_subject subject;
  const qsys_status status = locate(path, session, subject);
  if (!status.ok()) return status;
  qshare_info about;
  qshare_number number;
  std::string first(first_read, '\0');
  const int error = session->open(subject, about, number, first);
  about.is_directory = error == EISDIR;
  if (error != 0 && !about.is_directory) return qfile_status_of(error);
  first.resize(about.is_directory ? 0 : first.size());
  first.shrink_to_fit();
  out = std::make_unique<share_file>(std::move(session), std::move(subject), about, number, std::move(first));
  return {};
}

qsys_status share_provider::search(const qchar* pattern, std::unique_ptr<qfile_search>& out) {
  const std::u16string_view whole(pattern);
  const std::size_t cut = whole.rfind(u'\\');
  const std::u16string_view last = whole.substr(cut + 1);
  // Names on a share cannot contain wildcards.
  if (last.find_first_of(u"*?") != last.npos) {
    return list_directory(std::u16string(whole.substr(0, cut)).c_str(), std::u16string(last), out);
  }
  session_ptr session;
  qshare_subject subject;
  const qsys_status status = locate(pattern, session, subject);
  if (!status.ok()) return status;
  qshare_info about;
  if (const int error = session->information(subject, about); error != 0) return qfile_status_of(error);
  out = std::make_unique<share_single>(std::move(session), std::u16string(last), about.is_directory);
  return {};
}

}  // namespace

bool qshare_has_program() noexcept try { return qshare_child::has_program(); } catch (...) {
  return true;  // out of memory: nothing is known
}

void qshare_enable() noexcept {
  static share_provider provider;
  qfile_posix_set_share_provider(&provider);
}
