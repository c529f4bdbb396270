// Connections to network shares on Linux, counted by server and share for the whole process. Requests add and delete
// uses here; the share provider of the file layer finds its session here.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"
#include "common/qlib/smb/smb_module.h"

// The share module's functions, loaded on first use from beside the binary that holds this code; null without it.
[[nodiscard]] const smb_functions* qshare_module() noexcept;

// What "\\server\share\dir\file" names, in UTF-8.
struct qshare_name {
  std::string server;
  std::string share;
  std::string path;  // cut at '/'; empty for the share's root
};
// False unless `path` names a server and a share. May throw std::bad_alloc.
[[nodiscard]] bool qshare_parse(std::u16string_view path, qshare_name& name);

// A session with a share; the last owner ends it.
class qshare_session {
 public:
  qshare_session(const smb_functions& module, smb_session* handle) noexcept : module_(module), handle_(handle) {}
  qshare_session(const qshare_session&) = delete;
  qshare_session& operator=(const qshare_session&) = delete;
  ~qshare_session() { module_.disconnect(handle_); }
  [[nodiscard]] const smb_functions& module() const noexcept { return module_; }
  [[nodiscard]] smb_session* handle() const noexcept { return handle_; }
  [[nodiscard]] bool is_alive() const noexcept { return module_.is_alive(handle_) != 0; }

 private:
  const smb_functions& module_;
  smb_session* handle_;
};

// The session to use for a path: that of the use added for its server and share, else one with the process's own
// rights, kept as long as files or searches on it are open. 0 or a system error value. May throw std::bad_alloc.
[[nodiscard]] std::uint32_t qshare_find(const qshare_name& name, std::shared_ptr<qshare_session>& session);

// Adds a use of the share that `remote` names or lies on. The same credentials as before are counted; other ones for a
// server that is in use give 1219. 0 or a system error value; 67 for a path that names no share.
struct qshare_credentials {
  std::u16string_view domain;
  std::u16string_view user;
  std::u16string_view password;
};
[[nodiscard]] std::uint32_t qshare_use_add(std::u16string_view remote, const qshare_credentials& credentials) noexcept;
// Takes one use back; with the last the connection ends. 2401 while files on it are open, 2250 for no such use.
[[nodiscard]] std::uint32_t qshare_use_delete(std::u16string_view remote) noexcept;

// The port of all connections made from now on, for tests; 0 gives back the ordinary one: 445, or what the environment
// variable BRANTLE_SMB_PORT says, which the tests of the program use.
void qshare_set_port(std::uint16_t port) noexcept;
