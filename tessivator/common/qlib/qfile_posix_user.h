// Shared by the POSIX parts of the file layer.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qfile_provider.h"
#include "common/qlib/qsys_posix_user.h"

// `error` is an errno value.
[[nodiscard]] qsys_status qfile_status_of(int error) noexcept;

// The bytes of `path` for the system; false when no file can have this name.
[[nodiscard]] bool qfile_native_path(const qchar* path, std::string& out);
inline constexpr int QFILE_NO_SUCH_NAME = ENOENT;

// Local time in 100 ns since 1601, from seconds since 1970; 0 outside that range.
[[nodiscard]] std::int64_t qfile_local_time(std::int64_t seconds, std::uint32_t nanoseconds) noexcept;

// The parts of the local provider, one file each.
qsys_status qfile_posix_open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out);
qsys_status qfile_posix_create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out);
qsys_status qfile_posix_create_nameless(const qchar* path, std::unique_ptr<qfile_object>& out);
qsys_status qfile_posix_search(const qchar* pattern, std::unique_ptr<qfile_search>& out);
qsys_status qfile_posix_list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out);
// Of an open file, or with AT_FDCWD as descriptor, of a path.
qsys_status qfile_posix_info(int fd, const char* path, qfile_info& out) noexcept;

// Serves all paths that start with two backslashes from now on; null: nothing serves them and they answer
// QFILE_NO_SHARES. Must live until the process ends. Safe from any thread.
void qfile_posix_set_share_provider(qfile_provider* provider) noexcept;
inline constexpr int QFILE_NO_SHARES = EOPNOTSUPP;
