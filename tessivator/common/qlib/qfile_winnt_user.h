// Shared by the Windows parts of the file layer.
#pragma once

#include "common/qlib/qfile_provider.h"
#include "common/qlib/qsys_winnt_user.h"

// `error` is a GetLastError value.
[[nodiscard]] qsys_status qfile_status_of(DWORD error) noexcept;

// The parts of the local provider, one file each.
qsys_status qfile_winnt_open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out);
qsys_status qfile_winnt_create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out);
qsys_status qfile_winnt_search(const qchar* pattern, std::unique_ptr<qfile_search>& out);
qsys_status qfile_winnt_list(const qchar* directory, std::unique_ptr<qfile_search>& out);
// Of the directory at a native path; a link is followed.
qsys_status qfile_winnt_identity(const std::wstring& directory, qfile_identity& out) noexcept;
qsys_status qfile_winnt_info(HANDLE file, qfile_info& out) noexcept;
