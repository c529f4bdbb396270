#include "share/qshare_connections_posix_user.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>

#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qutf8.h"

namespace {

// A number for each thread, never used again. Not an object with a destructor: a host may unload this library while its
// threads live.
std::uint64_t this_thread() noexcept {
  static std::atomic<std::uint64_t> last{0};
  static thread_local std::uint64_t own = 0;
  if (own == 0) own = ++last;
  return own;
}

wint_t lower(char32_t character) noexcept {
  // The process's own locale is the host's affair.
  static const locale_t unicode = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const auto wide = static_cast<wint_t>(character);
  return unicode != nullptr ? ::towlower_l(wide, unicode) : ::towlower(wide);
}

// For comparing: the names of users and domains are the same in either case.
std::string lowered(std::u16string_view text) {
  std::string out;
  while (!text.empty()) {
    const qutf8_step step = qutf16_next(text);
    qutf8_append(out, static_cast<char32_t>(lower(step.scalar)));
    text.remove_prefix(step.length);
  }
  return out;
}

std::unique_ptr<qshare_target> new_target(const qshare_name& name) {
  auto target = std::make_unique<qshare_target>();
  target->server = name.server;
  target->share = name.share;
  return target;
}

std::unique_ptr<qshare_target> new_target(const qshare_name& name, const qshare_credentials& wide) {
  auto target = new_target(name);
  target->own_rights = false;
  target->domain = qstr_to_utf8(wide.domain);
  target->user = qstr_to_utf8(wide.user);
  // Room for all of it at once: a string that grows leaves copies behind.
  constexpr std::size_t most_bytes_a_unit = 3;
  target->password.reserve(wide.password.size() * most_bytes_a_unit);
  for (std::u16string_view rest = wide.password; !rest.empty();) {
    const qutf8_step step = qutf16_next(rest);
    qutf8_append(target->password, step.scalar);
    rest.remove_prefix(step.length);
  }
  return target;
}

// What a thread has connected to. A use is there from the moment that its thread begins to connect, and counts as many
// times as it was added; of a session with the process's own rights, only whoever holds it does.
struct connection {
  std::uint64_t thread;
  std::string server;
  std::string share;
  std::string who;  // the use's domain and user, lowered; empty for none
  std::size_t count = 0;
  std::shared_ptr<qshare_session> session;
  std::weak_ptr<qshare_session> own_rights;
};

struct table {
  std::mutex lock;
  std::list<connection> all;

  // This thread's, or null. A thread's own entry stays where it is until that thread takes it away.
  connection* find(const qshare_name& name, bool with_own_rights) noexcept {
    const auto found = std::find_if(all.begin(), all.end(), [&](const connection& one) {
      return one.thread == this_thread() && (one.count == 0) == with_own_rights && one.server == name.server &&
             one.share == name.share;
    });
    return found != all.end() ? &*found : nullptr;
  }
  void erase(const connection* entry) noexcept {
    all.remove_if([&](const connection& one) { return &one == entry; });
  }
};

table& connections() {
  static table table;
  return table;
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

// "[::1]" is an address.
std::u16string_view without_brackets(std::u16string_view server) noexcept {
  const bool bracketed = server.size() > 2 && server.front() == u'[' && server.back() == u']';
  return bracketed ? server.substr(1, server.size() - 2) : server;
}

}  // namespace

bool qshare_parse(std::u16string_view path, qshare_name& name) {
  qpath_share parts;
  if (!qpath_parse_share(path, parts)) return false;
  qshare_name parsed;
  if (!to_folded(without_brackets(parts.server), parsed.server) || !to_folded(parts.share, parsed.share)) return false;
  path = parts.rest;
  while (!path.empty()) {
    const std::u16string_view component = take_component(path);
    std::string bytes;
    if (component.empty()) continue;
    // No name on a share holds a slash; it would be cut there.
    if (component.find(u'/') != std::u16string_view::npos || !qstr_name_to_bytes(component, bytes)) return false;
    if (!parsed.path.empty()) parsed.path += '/';
    parsed.path += bytes;
    ++parsed.levels;
  }
  name = std::move(parsed);
  return true;
}

std::uint32_t qshare_find(const qshare_name& name, std::shared_ptr<qshare_session>& session) {
  table& known = connections();
  {
    const std::lock_guard guard(known.lock);
    const connection* const use = known.find(name, false);
    if (use != nullptr && use->session) {
      session = use->session;
      return QSHARE_OK;
    }
    const connection* const guest = known.find(name, true);
    if (guest != nullptr) session = guest->own_rights.lock();
    if (session) return QSHARE_OK;
  }
  auto made = std::make_shared<qshare_session>(new_target(name));
  const std::uint32_t code = made->connect();
  if (code != QSHARE_OK) return code;
  const std::lock_guard guard(known.lock);
  known.all.remove_if([](const connection& one) { return one.count == 0 && one.own_rights.expired(); });
  known.all.push_back({this_thread(), name.server, name.share, {}, 0, nullptr, made});
  session = std::move(made);
  return QSHARE_OK;
}

std::uint32_t qshare_use_add(std::u16string_view remote, const qshare_credentials& credentials) noexcept try {
  qshare_name name;
  if (!qshare_parse(remote, name)) return QSHARE_BAD_NET_NAME;
  std::string who = lowered(credentials.domain);
  who += '\\';
  who += lowered(credentials.user);
  std::unique_ptr<qshare_target> target = new_target(name, credentials);
  table& known = connections();
  connection* added = nullptr;
  {
    const std::lock_guard guard(known.lock);
    const bool conflict = std::any_of(known.all.begin(), known.all.end(), [&](const connection& other) {
      return other.count > 0 && other.server == name.server && other.who != who;
    });
    if (conflict) return QSHARE_CREDENTIAL_CONFLICT;
    added = known.find(name, false);
    if (added != nullptr && !added->session->dead()) {
      if (added->session->target().password != target->password) return QSHARE_CREDENTIAL_CONFLICT;
      ++added->count;
      return QSHARE_OK;
    }
    if (added == nullptr) {
      added = &known.all.emplace_back(connection{this_thread(), name.server, name.share, std::move(who), 1, {}, {}});
    } else {
      ++added->count;
    }
  }
  std::shared_ptr<qshare_session> made;
  std::uint32_t code = QSHARE_NOT_ENOUGH_MEMORY;
  try {
    made = std::make_shared<qshare_session>(std::move(target));
    code = made->connect();
  } catch (...) {
    code = QSHARE_NOT_ENOUGH_MEMORY;
  }
  const std::lock_guard guard(known.lock);
  if (code == QSHARE_OK) {
    added->session.swap(made);
  } else if (--added->count == 0) {
    known.erase(added);
  }
  return code;
} catch (...) {
  return QSHARE_NOT_ENOUGH_MEMORY;
}

std::uint32_t qshare_use_delete(std::u16string_view remote) noexcept try {
  qshare_name name;
  if (!qshare_parse(remote, name)) return QSHARE_NOT_CONNECTED;
  table& known = connections();
  std::shared_ptr<qshare_session> ended;  // outlives the lock: ending a program takes its time
  const std::lock_guard guard(known.lock);
  connection* const found = known.find(name, false);
  if (found == nullptr) return QSHARE_NOT_CONNECTED;
  if (found->count == 1 && found->session.use_count() > 1) return QSHARE_OPEN_FILES;
  if (--found->count > 0) return QSHARE_OK;
  ended = std::move(found->session);
  known.erase(found);
  return QSHARE_OK;
} catch (...) {
  return QSHARE_NOT_ENOUGH_MEMORY;
}
