#include "common/qlib/qshare_posix_user.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>

#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qutf8.h"

namespace {

constexpr std::uint16_t ORDINARY_PORT = 445;
std::atomic<std::uint16_t> chosen_port{0};

std::uint16_t port() noexcept {
  const std::uint16_t chosen = chosen_port;
  if (chosen != 0) return chosen;
  const char* const told = ::secure_getenv("BRANTLE_SMB_PORT");  // NOLINT(concurrency-mt-unsafe): read only
  if (told == nullptr) return ORDINARY_PORT;
  const unsigned long value = ::strtoul(told, nullptr, 10);
  return value > 0 && value <= 0xFFFF ? static_cast<std::uint16_t>(value) : ORDINARY_PORT;
}

// Credentials in UTF-8; the password's memory is wiped before it is given back.
struct secrets {
  secrets() = default;
  explicit secrets(const qshare_credentials& wide) : domain(qstr_to_utf8(wide.domain)), user(qstr_to_utf8(wide.user)) {
    // Room for all of it at once: a string that grows leaves copies behind.
    constexpr std::size_t MOST_BYTES_A_UNIT = 3;
    password.reserve(wide.password.size() * MOST_BYTES_A_UNIT);
    for (std::u16string_view rest = wide.password; !rest.empty();) {
      const qutf8_step step = qutf16_next(rest);
      qutf8_append(password, step.scalar);
      rest.remove_prefix(step.length);
    }
  }
  secrets(const secrets&) = delete;
  secrets& operator=(const secrets&) = delete;
  ~secrets() { explicit_bzero(password.data(), password.capacity()); }
  [[nodiscard]] bool equals(const secrets& other) const noexcept {
    return domain == other.domain && user == other.user && password == other.password;
  }
  std::string domain;
  std::string user;
  std::string password;
};

// A use that requests have added. While `session` is null, some thread is connecting for it.
struct use {
  use(const qshare_name& name, const qshare_credentials& wide) : server(name.server), share(name.share), given(wide) {}
  std::string server;
  std::string share;
  secrets given;
  std::size_t count = 1;
  std::shared_ptr<qshare_session> session;
};

// A session with the process's own rights, for as long as someone holds it.
struct guest {
  std::string server;
  std::string share;
  std::weak_ptr<qshare_session> session;
};

struct table {
  std::mutex lock;
  std::condition_variable changed;
  std::list<use> uses;
  std::list<guest> guests;
};

table& connections() {
  static table all;
  return all;
}

template <class List>
auto find(List& list, const qshare_name& name) {
  return std::find_if(list.begin(), list.end(),
                      [&](const auto& entry) { return entry.server == name.server && entry.share == name.share; });
}

std::uint32_t connect(const qshare_name& name, const secrets* given, std::shared_ptr<qshare_session>& session) {
  const smb_functions* const module = qshare_module();
  if (module == nullptr) return SMB_NOT_SUPPORTED;
  const secrets none;
  const secrets& used = given != nullptr ? *given : none;
  const smb_target target{name.server.c_str(),
                          name.share.c_str(),
                          used.domain.c_str(),
                          used.user.c_str(),
                          used.password.c_str(),
                          port(),
                          static_cast<std::uint8_t>(given == nullptr)};
  smb_session* handle = nullptr;
  const std::uint32_t code = module->connect(&target, &handle);
  if (code == SMB_OK) session = std::make_shared<qshare_session>(*module, handle);
  return code;
}

// Connects for a use without a session, not holding the table's lock meanwhile. Without success the use is gone.
std::uint32_t connect_use(table& all, std::list<use>::iterator added, const qshare_name& name,
                          std::unique_lock<std::mutex>& guard) {
  std::shared_ptr<qshare_session> session;
  std::uint32_t code = SMB_NOT_ENOUGH_MEMORY;
  guard.unlock();
  try {
    code = connect(name, &added->given, session);
  } catch (...) {
    code = SMB_NOT_ENOUGH_MEMORY;
  }
  guard.lock();
  if (code == SMB_OK) {
    added->session = std::move(session);
  } else {
    all.uses.erase(added);
  }
  all.changed.notify_all();
  return code;
}

std::u16string_view take_component(std::u16string_view& rest) noexcept {
  const std::size_t end = rest.find(u'\\');
  const std::u16string_view component = rest.substr(0, end);
  rest = end == std::u16string_view::npos ? std::u16string_view() : rest.substr(end + 1);
  return component;
}

// Servers and shares are the same in either case; folding more than A-Z is the server's business.
bool to_folded(std::u16string_view text, std::string& out) {
  if (!qstr_name_to_bytes(text, out)) return false;
  for (char& character : out) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return true;
}

}  // namespace

bool qshare_parse(std::u16string_view path, qshare_name& name) {
  qpath_share parts;
  if (!qpath_parse_share(path, parts)) return false;
  qshare_name parsed;
  if (!to_folded(parts.server, parsed.server) || !to_folded(parts.share, parsed.share)) return false;
  path = parts.rest;
  while (!path.empty()) {
    const std::u16string_view component = take_component(path);
    std::string bytes;
    if (component.empty()) continue;
    // No name on a share holds a slash; it would be cut there.
    if (component.find(u'/') != std::u16string_view::npos || !qstr_name_to_bytes(component, bytes)) return false;
    if (!parsed.path.empty()) parsed.path += '/';
    parsed.path += bytes;
  }
  name = std::move(parsed);
  return true;
}

std::uint32_t qshare_find(const qshare_name& name, std::shared_ptr<qshare_session>& session) {
  table& all = connections();
  {
    const std::lock_guard guard(all.lock);
    const auto used = find(all.uses, name);
    if (used != all.uses.end() && used->session) {
      session = used->session;
      return SMB_OK;
    }
    all.guests.remove_if([](const guest& entry) { return entry.session.expired(); });
    const auto met = find(all.guests, name);
    if (met != all.guests.end()) {
      session = met->session.lock();
      if (session && session->is_alive()) return SMB_OK;
    }
  }
  // Two threads may both connect; each then has a session of its own.
  const std::uint32_t code = connect(name, nullptr, session);
  if (code != SMB_OK) return code;
  const std::lock_guard guard(all.lock);
  const auto met = find(all.guests, name);
  if (met != all.guests.end()) {
    met->session = session;
  } else {
    all.guests.push_back({name.server, name.share, session});
  }
  return SMB_OK;
}

std::uint32_t qshare_use_add(std::u16string_view remote, const qshare_credentials& credentials) noexcept try {
  qshare_name name;
  if (!qshare_parse(remote, name)) return SMB_BAD_NET_NAME;
  table& all = connections();
  const secrets given(credentials);
  std::shared_ptr<qshare_session> lost;  // ends without the lock
  std::unique_lock guard(all.lock);
  for (;;) {
    const bool conflict = std::any_of(all.uses.begin(), all.uses.end(), [&](const use& other) {
      return other.server == name.server && !other.given.equals(given);
    });
    if (conflict) return SMB_CREDENTIAL_CONFLICT;
    const auto found = find(all.uses, name);
    if (found == all.uses.end()) break;
    if (found->session) {
      ++found->count;
      if (found->session->is_alive()) return SMB_OK;
      lost = std::move(found->session);
      return connect_use(all, found, name, guard);
    }
    all.changed.wait(guard);
  }
  return connect_use(all, all.uses.emplace(all.uses.end(), name, credentials), name, guard);
} catch (...) {
  return SMB_NOT_ENOUGH_MEMORY;
}

std::uint32_t qshare_use_delete(std::u16string_view remote) noexcept try {
  qshare_name name;
  if (!qshare_parse(remote, name)) return SMB_NOT_CONNECTED;
  table& all = connections();
  std::list<use> ended;  // outlives the lock: ending a session may wait for its server
  const std::lock_guard guard(all.lock);
  const auto found = find(all.uses, name);
  if (found == all.uses.end() || !found->session) return SMB_NOT_CONNECTED;
  if (found->count > 1) {
    --found->count;
    return SMB_OK;
  }
  if (found->session.use_count() > 1) return SMB_OPEN_FILES;
  ended.splice(ended.end(), all.uses, found);
  return SMB_OK;
} catch (...) {
  return SMB_NOT_ENOUGH_MEMORY;
}

void qshare_set_port(std::uint16_t port) noexcept { chosen_port = port; }
