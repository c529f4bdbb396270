// Inside the share module: a session, and what every call into libsmbclient needs around it.
#pragma once

#include <libsmbclient.h>
#include <signal.h>

#include <atomic>
#include <mutex>
#include <string>

#include "common/qlib/smb/smb_module.h"

// A copy of a password; its memory is wiped before it is given back.
class smb_secret {
 public:
  explicit smb_secret(const char* text) : text_(text) {}
  smb_secret(const smb_secret&) = delete;
  smb_secret& operator=(const smb_secret&) = delete;
  ~smb_secret();
  [[nodiscard]] const char* get() const noexcept { return text_.c_str(); }

 private:
  std::string text_;
};

struct smb_session {
  explicit smb_session(const smb_target& target);
  smb_session(const smb_session&) = delete;
  smb_session& operator=(const smb_session&) = delete;
  ~smb_session();

  std::string server;
  std::string share;
  std::string domain;
  std::string user;
  smb_secret password;
  bool own_rights;
  std::uint16_t port;

  SMBCCTX* context = nullptr;
  smbc_add_cached_srv_fn keep_connection = nullptr;  // libsmbclient's own
  SMBCSRV* reached = nullptr;                        // the connection that libsmbclient made last
  std::atomic<bool> dead{false};
};

// Holds what a call into libsmbclient needs: the lock, and SIGPIPE blocked in this thread, which libsmbclient would
// otherwise block for good or let loose on the host.
class smb_call {
 public:
  smb_call();
  smb_call(const smb_call&) = delete;
  smb_call& operator=(const smb_call&) = delete;
  ~smb_call();

 private:
  std::unique_lock<std::mutex> lock_;
  sigset_t mask_{};
  bool was_pending_ = false;
};

// "smb://server/share/path", encoded. May throw std::bad_alloc.
[[nodiscard]] std::string smb_url(const smb_session& session, const std::string& share, const char* path);

// Takes errno after a failed call; notes that the session is lost when it tells so. Never 0.
[[nodiscard]] int smb_failure(smb_session& session) noexcept;
[[nodiscard]] bool smb_is_network_error(int error) noexcept;

[[nodiscard]] std::uint32_t smb_connect(const smb_target* target, smb_session** session) noexcept;
void smb_disconnect(smb_session* session) noexcept;
