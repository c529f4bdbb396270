// Inside the share program: libsmbclient, and the one share of one server that it serves.
#pragma once

#include <libsmbclient.h>

#include <string>

#include "share/qshare_protocol.h"

// What to connect to; the password's memory is wiped before it is given back.
struct smb_target {
  smb_target() = default;
  smb_target(const smb_target&) = delete;
  smb_target& operator=(const smb_target&) = delete;
  ~smb_target();

  std::string server;
  std::string share;
  bool own_rights = false;  // a Kerberos ticket of the user's if there is one, else those of a guest
  std::string domain;
  std::string user;
  std::string password;
};

class smb_server {
 public:
  // `port` is 445 outside tests.
  explicit smb_server(std::uint16_t port) noexcept : port_(port) {}
  smb_server(const smb_server&) = delete;
  smb_server& operator=(const smb_server&) = delete;
  // Whatever is open ends with the process: closing it would wait for a server that may be gone.
  ~smb_server() = default;

  // Once. A system error value. Keeps what `target` holds.
  [[nodiscard]] std::uint32_t connect(smb_target& target);
  [[nodiscard]] SMBCCTX* context() const noexcept { return context_; }
  // "smb://server/share/path", encoded.
  [[nodiscard]] std::string url(std::string_view path) const { return url(target_->share, path); }
  // What a call that just failed left in errno, never 0; ENOTCONN when the server is lost.
  [[nodiscard]] int failure() const noexcept;

 private:
  static smb_server& of(SMBCCTX* context) noexcept;
  static void tell_credentials(SMBCCTX* context, const char* server, const char* share, char* domain, int domain_size,
                               char* user, int user_size, char* password, int password_size);
  static int connection_made(SMBCCTX* context, SMBCSRV* made, const char* server, const char* share, const char* domain,
                             const char* user);
  [[nodiscard]] std::string url(const std::string& share, std::string_view path) const;
  void set_up() noexcept;
  int reach(const std::string& share);
  std::uint32_t why_refused();
  std::uint32_t reach_share();
  [[nodiscard]] bool is_known_host() const noexcept;

  std::uint16_t port_;
  smb_target* target_ = nullptr;
  SMBCCTX* context_ = nullptr;
  smbc_add_cached_srv_fn keep_connection_ = nullptr;  // libsmbclient's own
  SMBCSRV* reached_ = nullptr;                        // the connection that libsmbclient made last
};
