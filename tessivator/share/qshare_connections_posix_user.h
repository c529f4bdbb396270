// Connections to network shares on Linux. A connection is a program of its own that belongs to one thread, because a
// request runs on one; what is counted for the whole process is who has logged on to which server. Requests add and
// delete uses here; the share provider of the file layer finds its session here.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "share/qshare_session_posix_user.h"

// What "\\server\share\dir\file" names, in UTF-8.
struct qshare_name {
  std::string server;  // an address without the brackets around it
  std::string share;
  std::string path;        // cut at '/'; empty for the share's root
  std::size_t levels = 0;  // components of `path`
};
// False unless `path` names a server and a share. May throw std::bad_alloc.
[[nodiscard]] bool qshare_parse(std::u16string_view path, qshare_name& name);

// The calling thread's session for a path: that of the use that it added for this server and share, else one with the
// process's own rights, kept as long as files or searches on it are open. 0 or a system error value. May throw
// std::bad_alloc.
[[nodiscard]] std::uint32_t qshare_find(const qshare_name& name, std::shared_ptr<qshare_session>& session);

// Adds a use of the share that `remote` names or lies on, for the calling thread. While a server is in use, other users
// are answered 1219; user and domain are the same in either case. 0 or a system error value; 67 for a path that names
// no share.
struct qshare_credentials {
  std::u16string_view domain;
  std::u16string_view user;
  std::u16string_view password;
};
[[nodiscard]] std::uint32_t qshare_use_add(std::u16string_view remote, const qshare_credentials& credentials) noexcept;
// Takes one of the calling thread's uses back; with the last the connection ends. 2401 while files on it are open, 2250
// for no such use.
[[nodiscard]] std::uint32_t qshare_use_delete(std::u16string_view remote) noexcept;
