// Files on network shares, read-only: what a scan needs. Writing answers EROFS.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_pattern_posix_user.h"
#include "common/qlib/qfile_posix_user.h"
#include "common/qlib/qshare_posix_user.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"

namespace {

constexpr qsys_status END_OF_DIRECTORY{QERR_END, qsys_condition::end_of_directory};

// Every request costs a round trip. The first read of a file fetches what its headers and most small files need; a
// reader that goes on from there gets large pieces.
constexpr std::size_t FIRST_READ = std::size_t{64} << 10U;
constexpr std::size_t LARGE_READ = std::size_t{1} << 20U;
constexpr std::uint64_t END_UNKNOWN = std::numeric_limits<std::uint64_t>::max();

using session_ptr = std::shared_ptr<qshare_session>;

qsys_status status_of_system(std::uint32_t code) noexcept {
  if (code == SMB_OK) return {};
  const bool missing = code == SMB_BAD_NETPATH || code == SMB_BAD_NET_NAME;
  return {qerr_from_win32(code), missing ? qsys_condition::not_found : qsys_condition::none};
}

qsys_status status_of(int error) noexcept { return error == 0 ? qsys_status{} : qfile_status_of(error); }

// The session for `path`, and what the path is called there.
qsys_status locate(const qchar* path, session_ptr& session, std::string& inside) {
  qshare_name name;
  if (!qshare_parse(path, name)) return qfile_status_of(QFILE_NO_SUCH_NAME);
  const qsys_status status = status_of_system(qshare_find(name, session));
  if (status.ok()) inside = std::move(name.path);
  return status;
}

void take_info(const smb_info& about, qfile_info& out) noexcept {
  out.size = about.size;
  out.last_write_time = qfile_local_time(about.write_seconds, about.write_nanoseconds);
  out.creation_time = out.last_write_time;  // the creation time would cost another request
}

class share_file final : public qfile_positioned {
 public:
  // `file` is null for an open directory.
  share_file(session_ptr session, smb_file* file) noexcept
      : qfile_positioned(file != nullptr), session_(std::move(session)), file_(file) {}
  ~share_file() override {
    if (file_ != nullptr) session_->module().close(file_);
  }
  share_file(const share_file&) = delete;
  share_file& operator=(const share_file&) = delete;

  qsys_status write(const void*, std::uint32_t, std::uint32_t&) noexcept override { return qfile_status_of(EBADF); }

  qsys_status size(std::uint64_t& bytes) noexcept override {
    smb_info about{};
    const qsys_status status = ask(about);
    if (status.ok()) bytes = about.size;
    return status;
  }

  qsys_status truncate(std::uint64_t) noexcept override { return qfile_status_of(EBADF); }

  qsys_status info(qfile_info& out) noexcept override {
    smb_info about{};
    const qsys_status status = ask(about);
    if (status.ok()) take_info(about, out);
    return status;
  }

 private:
  // Asking would cost a round trip, and the first answer tells.
  std::uint64_t expected_size() noexcept override { return largest_block; }

  qsys_status ask(smb_info& about) noexcept {
    if (file_ == nullptr) return {};
    return status_of(session_->module().info(file_, &about));
  }

  qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    std::size_t count = 0;
    const qsys_status status = take(offset, static_cast<std::byte*>(buffer), size, count);
    done = static_cast<std::uint32_t>(count);
    return status;
  }

  qsys_status take(std::uint64_t offset, std::byte* destination, std::size_t size, std::size_t& count) noexcept {
    count = 0;
    if (file_ == nullptr) return qfile_status_of(EISDIR);
    if (size == 0) return {};
    if (size >= LARGE_READ && !holds(offset)) return fetch(offset, destination, size, count);
    if (!holds(offset)) {
      const qsys_status status = fill(offset, size);
      if (!status.ok() || !holds(offset)) return status;
    }
    const auto skipped = static_cast<std::size_t>(offset - held_from_);
    count = std::min(size, held_ - skipped);
    std::memcpy(destination, bytes_.get() + skipped, count);
    return {};
  }

  [[nodiscard]] bool holds(std::uint64_t offset) const noexcept {
    return offset >= held_from_ && offset - held_from_ < held_;
  }

  // Reads ahead into our own buffer.
  qsys_status fill(std::uint64_t offset, std::size_t size) noexcept {
    const bool goes_on = offset != 0 && offset == fetched_to_;
    const std::size_t wanted = std::max(size, goes_on ? LARGE_READ : FIRST_READ);
    held_ = 0;
    if (wanted > capacity_) {
      bytes_.reset(new (std::nothrow) std::byte[wanted]);
      capacity_ = bytes_ ? wanted : 0;
      if (!bytes_) return {QERR_LOW_MEMORY, qsys_condition::none};
    }
    held_from_ = offset;
    return fetch(offset, bytes_.get(), wanted, held_);
  }

  // One request, none behind the end that an earlier one met.
  qsys_status fetch(std::uint64_t offset, std::byte* destination, std::size_t size, std::size_t& count) noexcept {
    if (offset >= end_) return {};
    const qsys_status status = status_of(session_->module().read(file_, destination, size, offset, &count));
    if (!status.ok()) return status;
    fetched_to_ = offset + count;
    if (count < size) end_ = fetched_to_;
    return {};
  }

  session_ptr session_;
  smb_file* file_;
  std::uint64_t end_ = END_UNKNOWN;
  std::uint64_t fetched_to_ = 0;
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t capacity_ = 0;
  std::uint64_t held_from_ = 0;
  std::size_t held_ = 0;
};

void fill_entry(qfile_entry& entry, std::u16string&& name, bool is_directory, bool is_reparse) noexcept {
  entry.name = std::move(name);
  entry.is_directory = is_directory;
  entry.is_reparse = is_reparse;
  entry.is_symlink = false;
  entry.is_link = is_directory && is_reparse;
  // Some servers follow links themselves and show only directories.
  entry.may_repeat = is_directory;
}

class share_search final : public qfile_search {
 public:
  share_search(session_ptr session, smb_directory* directory, std::uint64_t index, std::u16string pattern) noexcept
      : session_(std::move(session)), directory_(directory), index_(index), pattern_(std::move(pattern)) {}
  ~share_search() override { session_->module().close_directory(directory_); }
  share_search(const share_search&) = delete;
  share_search& operator=(const share_search&) = delete;

  qsys_status next(qfile_entry& entry) override {
    for (;;) {
      smb_entry listed{};
      const int error = session_->module().next(directory_, &listed);
      if (error == ENODATA) return END_OF_DIRECTORY;
      if (error != 0) return qfile_status_of(error);
      const std::string_view bytes(listed.name);
      // A name that leads elsewhere is no name.
      if (bytes.empty() || bytes == "." || bytes == ".." || bytes.find_first_of("/\\") != bytes.npos) continue;
      std::u16string name = qstr_name_from_bytes(bytes);
      if (!pattern_.empty() && !qfile_name_matches(pattern_, name)) continue;
      fill_entry(entry, std::move(name), (listed.attributes & SMB_ATTRIBUTE_DIRECTORY) != 0,
                 (listed.attributes & SMB_ATTRIBUTE_REPARSE_POINT) != 0);
      return {};
    }
  }

  // A walk never leaves its share.
  bool identity(qfile_identity& out) const noexcept override {
    out = {0, index_, 0};
    return index_ != 0;
  }

 private:
  session_ptr session_;
  smb_directory* directory_;
  std::uint64_t index_;     // the server's number for the directory; 0: it has none
  std::u16string pattern_;  // empty: every name
};

// Yields the one entry that was asked for by its own name. Holds the session, so that the walk below uses it.
class share_single final : public qfile_search {
 public:
  share_single(session_ptr session, std::u16string name, bool is_directory) noexcept
      : session_(std::move(session)), name_(std::move(name)), is_directory_(is_directory) {}
  qsys_status next(qfile_entry& entry) override {
    if (done_) return END_OF_DIRECTORY;
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
  std::string inside;
  const qsys_status status = locate(directory, session, inside);
  if (!status.ok()) return status;
  const smb_functions& module = session->module();
  smb_info about{};
  (void)module.stat(session->handle(), inside.c_str(), &about);
  smb_directory* opened = nullptr;
  const int error = module.open_directory(session->handle(), inside.c_str(), &opened);
  if (error != 0) return qfile_status_of(error);
  try {
    out = std::make_unique<share_search>(session, opened, about.index, std::move(pattern));
  } catch (...) {
    module.close_directory(opened);
    throw;
  }
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
    smb_info about{};
    return ask(path, about);
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    smb_info about{};
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
  static qsys_status ask(const qchar* path, smb_info& about) {
    session_ptr session;
    std::string inside;
    const qsys_status status = locate(path, session, inside);
    if (!status.ok()) return status;
    return status_of(session->module().stat(session->handle(), inside.c_str(), &about));
  }
};

qsys_status share_provider::open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) {
  if ((flags & QFILE_WRITE) != 0) return read_only();
  session_ptr session;
  std::string inside;
  const qsys_status status = locate(path, session, inside);
  if (!status.ok()) return status;
  const smb_functions& module = session->module();
  smb_file* opened = nullptr;
  const int error = module.open(session->handle(), inside.c_str(), &opened);
  if (error != 0 && error != EISDIR) return qfile_status_of(error);
  try {
    out = std::make_unique<share_file>(session, opened);
  } catch (...) {
    if (opened != nullptr) module.close(opened);
    throw;
  }
  return {};
}

qsys_status share_provider::search(const qchar* pattern, std::unique_ptr<qfile_search>& out) {
  const std::u16string_view whole(pattern);
  const std::size_t cut = whole.rfind(u'\\');
  const std::u16string_view last = whole.substr(cut + 1);
  // No name on a share holds a wildcard.
  if (last.find_first_of(u"*?") != last.npos) {
    return list_directory(std::u16string(whole.substr(0, cut)).c_str(), std::u16string(last), out);
  }
  session_ptr session;
  std::string inside;
  const qsys_status status = locate(pattern, session, inside);
  if (!status.ok()) return status;
  smb_info about{};
  const int error = session->module().stat(session->handle(), inside.c_str(), &about);
  if (error != 0) return qfile_status_of(error);
  out = std::make_unique<share_single>(std::move(session), std::u16string(last), about.is_directory != 0);
  return {};
}

}  // namespace

qfile_provider& qfile_share_provider() noexcept {
  static share_provider provider;
  return provider;
}
