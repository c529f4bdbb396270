#include "share/program/smb_server_posix_user.h"

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

// Before libsmbclient looks up the name of a server, libtdb would fork to find out whether the kernel has robust
// mutexes for a cache that we do not want. This one is found first.
extern "C" __attribute__((visibility("default"))) bool tdb_runtime_check_for_robust_mutexes();
bool tdb_runtime_check_for_robust_mutexes() { return false; }

// Every context begins by loading ~/.smb/smb.conf or the machine's smb.conf. This one is found first too, and loads the
// defaults in their place.
extern "C" __attribute__((visibility("default"))) bool lp_load_client(const char* path);
bool lp_load_client(const char*) {
  using load = bool(const char*);
  static auto* const original = reinterpret_cast<load*>(::dlsym(RTLD_NEXT, "lp_load_client"));
  return original != nullptr && original("/dev/null");
}

namespace {

// A server that does not answer a request within this time is lost.
constexpr int answer_milliseconds = 10000;

// libsmbclient hands out buffers of 256 bytes for names and password, and would cut a longer one.
constexpr std::size_t longest_credential = 255;

// What differs from the defaults, and what no smb.conf of the machine may decide, should a later libsmbclient read it
// by another way.
constexpr std::string_view configuration =
    "[global]\n"
    "client min protocol = SMB2_02\n"
    "client max protocol = SMB3\n"
    "client signing = default\n"
    "client ipc signing = default\n"
    "client ipc min protocol = SMB2_02\n"
    "client ipc max protocol = SMB3\n"
    "client smb encrypt = default\n"
    "client use kerberos = desired\n"
    "name resolve order = host\n"
    "name cache timeout = 0\n"
    "unix charset = UTF-8\n"
    "socket options = TCP_NODELAY\n"
    "workgroup = WORKGROUP\n"
    "realm =\n"
    "security = user\n"
    "interfaces =\n"
    "winbind use default domain = no\n"
    "cache directory = /dev/null\n"
    "lock directory = /dev/null\n"
    "state directory = /dev/null\n"
    "log level = 0\n"
    "logging = file\n";

void discard_log(void*, int, const char*) {}

bool configure(SMBCCTX* context) noexcept {
  const int fd = ::memfd_create("brantle_smb.conf", MFD_CLOEXEC);
  if (fd < 0) return false;
  std::string path = "/proc/self/fd/";
  path += std::to_string(fd);
  const bool done =
      ::write(fd, configuration.data(), configuration.size()) == static_cast<ssize_t>(configuration.size()) &&
      smbc_setConfiguration(context, path.c_str()) == 0;
  ::close(fd);
  return done && smbc_setOptionProtocols(context, "SMB2_02", "SMB3") != 0;
}

SMBCCTX* new_context() noexcept {
  SMBCCTX* const context = smbc_new_context();
  if (context == nullptr) return nullptr;
  smbc_setLogCallback(context, nullptr, discard_log);
  smbc_setDebug(context, 0);
  if (smbc_init_context(context) != nullptr && configure(context)) return context;
  smbc_free_context(context, 1);
  return nullptr;
}

void put(char* destination, int capacity, const char* text) noexcept {
  if (capacity <= 0) return;
  const std::size_t length = std::min(strlen(text), static_cast<std::size_t>(capacity) - 1);
  memcpy(destination, text, length);
  destination[length] = 0;
}

void append_encoded(std::string& url, std::string_view text) {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                       byte == '.' || byte == '-' || byte == '_' || byte == '/';
    if (plain) {
      url += character;
    } else {
      url += '%';
      url += digits[byte >> 4U];
      url += digits[byte & 15U];
    }
  }
}

bool is_network_error(int error) noexcept {
  static constexpr std::array lost = {ETIMEDOUT,    ECONNREFUSED, ECONNRESET,  ECONNABORTED, ENOTCONN, EPIPE,
                                      EHOSTUNREACH, EHOSTDOWN,    ENETUNREACH, ENETDOWN,     ENETRESET};
  return std::find(lost.begin(), lost.end(), error) != lost.end();
}

// After a loss libsmbclient answers some calls with an errno that says nothing of it: whether there is a connection is
// seen by its socket. This process has few descriptors.
bool has_connection() noexcept {
  constexpr int most_descriptors = 256;
  for (int fd = 0; fd < most_descriptors; ++fd) {
    tcp_info about{};
    socklen_t size = sizeof about;
    if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &about, &size) == 0 && about.tcpi_state == TCP_ESTABLISHED) return true;
  }
  return false;
}

std::uint32_t network_failure(int error) noexcept {
  // A connection that was made and is gone may be had again.
  if (error == ECONNRESET || error == ECONNABORTED || error == EPIPE || error == ENOTCONN)
    return QSHARE_NETNAME_DELETED;
  if (is_network_error(error)) return QSHARE_BAD_NETPATH;
  return error == ENOMEM ? QSHARE_NOT_ENOUGH_MEMORY : QSHARE_UNEXPECTED_NET_ERROR;
}

// An address that leads nowhere is none to libsmbclient either.
bool is_usable(const sockaddr* address) noexcept {
  if (address->sa_family == AF_INET6) {
    return memcmp(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, &in6addr_any, sizeof in6addr_any) != 0;
  }
  const in_addr_t ip = reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
  return ip != INADDR_ANY && ip != INADDR_NONE;
}

bool is_too_long(const std::string& text) noexcept {
  return text.size() > longest_credential || text.find('\0') != text.npos;
}

}  // namespace

smb_target::~smb_target() { explicit_bzero(password.data(), password.capacity()); }

smb_server& smb_server::of(SMBCCTX* context) noexcept {
  return *static_cast<smb_server*>(smbc_getOptionUserData(context));
}

// Never asks anyone: with the process's own rights libsmbclient's own guess stands.
void smb_server::tell_credentials(SMBCCTX* context, const char*, const char*, char* domain, int domain_size, char* user,
                                  int user_size, char* password, int password_size) {
  const smb_target& target = *of(context).target_;
  if (target.own_rights) return;
  put(domain, domain_size, target.domain.c_str());
  put(user, user_size, target.user.c_str());
  put(password, password_size, target.password.c_str());
}

// libsmbclient tells of each connection that it has made; only this says for sure that one was made, because a refused
// path and a refused connection have the same errno.
int smb_server::connection_made(SMBCCTX* context, SMBCSRV* made, const char* server, const char* share,
                                const char* domain, const char* user) {
  smb_server& own = of(context);
  own.reached_ = made;
  return own.keep_connection_(context, made, server, share, domain, user);
}

void smb_server::set_up() noexcept {
  smbc_setOptionUserData(context_, this);
  smbc_setFunctionAuthDataWithContext(context_, tell_credentials);
  keep_connection_ = smbc_getFunctionAddCachedServer(context_);
  smbc_setFunctionAddCachedServer(context_, connection_made);
  smbc_setPort(context_, port_);
  smbc_setTimeout(context_, answer_milliseconds);
  // Logging on to Kerberos with a given password would replace the tickets in the user's own cache.
  smbc_setOptionUseKerberos(context_, target_->own_rights ? 1 : 0);
  smbc_setOptionFallbackAfterKerberos(context_, 1);
  // Given credentials must be right; nobody gets in as a guest for a mistyped password.
  smbc_setOptionNoAutoAnonymousLogin(context_, target_->own_rights ? 0 : 1);
}

// Connects to a share's root; what the root itself then answers does not matter.
int smb_server::reach(const std::string& share) {
  reached_ = nullptr;
  struct stat about {};
  errno = 0;
  (void)smbc_getFunctionStat(context_)(context_, url(share, "").c_str(), &about);
  if (reached_ != nullptr) return 0;
  return errno != 0 ? errno : EIO;
}

// A host that nobody knows is EINVAL to libsmbclient, as are credentials that a server finds malformed.
bool smb_server::is_known_host() const noexcept {
  addrinfo* found = nullptr;
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  if (::getaddrinfo(target_->server.c_str(), nullptr, &hints, &found) != 0) return false;
  bool known = false;
  for (const addrinfo* one = found; one != nullptr && !known; one = one->ai_next) known = is_usable(one->ai_addr);
  ::freeaddrinfo(found);
  return known;
}

// Why the share was refused to given credentials: a refused logon and a refused share have the same errno. Whoever may
// log on at all reaches the share that every server has.
std::uint32_t smb_server::why_refused() {
  const int error = target_->own_rights ? 0 : reach("IPC$");
  if (is_network_error(error)) return network_failure(error);
  return error == EACCES || error == EPERM || error == EINVAL ? QSHARE_LOGON_FAILURE : QSHARE_ACCESS_DENIED;
}

std::uint32_t smb_server::reach_share() {
  const int error = reach(target_->share);
  if (error == 0) return QSHARE_OK;
  if (error == EACCES || error == EPERM) return why_refused();
  if (error == EINVAL) return is_known_host() ? QSHARE_LOGON_FAILURE : QSHARE_BAD_NETPATH;
  if (error == ENOENT || error == ENODEV || error == ENXIO) return QSHARE_BAD_NET_NAME;
  return network_failure(error);
}

std::string smb_server::url(const std::string& share, std::string_view path) const {
  std::string url = "smb://";
  append_encoded(url, target_->server);
  url += '/';
  append_encoded(url, share);
  url += '/';
  append_encoded(url, path);
  return url;
}

int smb_server::failure() const noexcept {
  const int error = errno != 0 ? errno : EIO;
  return is_network_error(error) || !has_connection() ? ENOTCONN : error;
}

std::uint32_t smb_server::connect(smb_target& target) {
  if (is_too_long(target.domain) || is_too_long(target.user) || is_too_long(target.password)) {
    return QSHARE_INVALID_PARAMETER;
  }
  target_ = &target;
  context_ = new_context();
  if (context_ == nullptr) return QSHARE_NOT_SUPPORTED;
  set_up();
  return reach_share();
}
