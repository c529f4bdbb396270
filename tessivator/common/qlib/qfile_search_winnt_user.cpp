// Directory searches on Windows.
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_winnt_user.h"

namespace {

// A reparse tag with this bit redirects to another place: set for links and junctions, not for cloud placeholders and
// compressed files.
constexpr DWORD name_surrogate = 0x20000000;

struct close_find {
  void operator()(void* handle) const noexcept { FindClose(handle); }
};

class find_search final : public qfile_search {
 public:
  find_search(HANDLE handle, const WIN32_FIND_DATAW& first) noexcept : found_(first), handle_(handle) {}

  void set_identity(const qfile_identity& identity) noexcept {
    identity_ = identity;
    has_identity_ = true;
  }

  qsys_status next(qfile_entry& entry) override {
    if (!has_first_ && FindNextFileW(handle_.get(), &found_) == FALSE) return qfile_status_of(GetLastError());
    has_first_ = false;
    const DWORD attributes = found_.dwFileAttributes;
    const DWORD tag = found_.dwReserved0;
    entry.name = qsys_units(found_.cFileName);
    entry.is_directory = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    entry.is_reparse = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    entry.is_symlink = entry.is_reparse && tag == IO_REPARSE_TAG_SYMLINK;
    entry.is_link = entry.is_reparse && (tag & name_surrogate) != 0;
    return {};
  }

  bool identity(qfile_identity& out) const noexcept override {
    if (has_identity_) out = identity_;
    return has_identity_;
  }

 private:
  WIN32_FIND_DATAW found_;
  std::unique_ptr<void, close_find> handle_;
  bool has_first_ = true;
  bool has_identity_ = false;
  qfile_identity identity_;
};

qsys_status find(const std::wstring& pattern, std::unique_ptr<find_search>& out) {
  WIN32_FIND_DATAW first{};
  // Without short names and in large chunks: half the work for wide directories.
  HANDLE const handle = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &first, FindExSearchNameMatch, nullptr,
                                         FIND_FIRST_EX_LARGE_FETCH);
  if (handle == INVALID_HANDLE_VALUE) return qfile_status_of(GetLastError());
  std::unique_ptr<void, close_find> owner(handle);
  out = std::make_unique<find_search>(handle, first);
  (void)owner.release();
  return {};
}

}  // namespace

qsys_status qfile_winnt_search(const qchar* pattern, std::unique_ptr<qfile_search>& out) {
  std::unique_ptr<find_search> search;
  const qsys_status status = find(qsys_extended_path(pattern), search);
  out = std::move(search);
  return status;
}

qsys_status qfile_winnt_list(const qchar* directory, std::unique_ptr<qfile_search>& out) {
  std::wstring pattern = qsys_extended_path(directory);
  qfile_identity identity;
  const bool identified = qfile_winnt_identity(pattern, identity).ok();
  if (pattern.empty() || pattern.back() != L'\\') pattern += L'\\';
  pattern += L'*';
  std::unique_ptr<find_search> search;
  const qsys_status status = find(pattern, search);
  if (status.ok() && identified) search->set_identity(identity);
  out = std::move(search);
  return status;
}
