#include "common/qlib/smb/smb_session_posix_user.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

// Before libsmbclient looks up the name of a server, libtdb would fork the host and take its SIGCHLD handler away, to
// find out whether the kernel has robust mutexes for a cache that we do not want. This one is found first.
extern "C" __attribute__((visibility("default"))) bool tdb_runtime_check_for_robust_mutexes();
bool tdb_runtime_check_for_robust_mutexes() { return false; }

// Every context begins by loading ~/.smb/smb.conf or the machine's smb.conf, and tells of it on standard output if they
// ask for that. This one is found first too, and loads the defaults in their place.
extern "C" __attribute__((visibility("default"))) bool lp_load_client(const char* path);
bool lp_load_client(const char*) {
  using load = bool(const char*);
  static auto* const original = reinterpret_cast<load*>(::dlsym(RTLD_NEXT, "lp_load_client"));
  return original != nullptr && original("/dev/null");
}

namespace {

// A server that does not answer a request within this time is lost. A loss is noticed by as many as four requests, one
// after the other, and a scan that meets one ends within a minute.
constexpr int ANSWER_MILLISECONDS = 10000;

// libsmbclient hands out buffers of 256 bytes for names and password, and would cut a longer one.
constexpr std::size_t LONGEST_CREDENTIAL = 255;

// What differs from the defaults, and what no smb.conf of the machine may decide, should a later libsmbclient read it
// by another way.
constexpr std::string_view CONFIGURATION =
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

// One call at a time enters libsmbclient, whatever its session: builds without smbc_thread_posix keep all contexts'
// work on one memory stack, and every new context loads the settings that all of them read anew.
std::mutex library_lock;

void discard_log(void*, int, const char*) {}

bool configure(SMBCCTX* context) noexcept {
  const int fd = ::memfd_create("brantle_smb.conf", MFD_CLOEXEC);
  if (fd < 0) return false;
  std::string path = "/proc/self/fd/";
  path += std::to_string(fd);
  const bool done =
      ::write(fd, CONFIGURATION.data(), CONFIGURATION.size()) == static_cast<ssize_t>(CONFIGURATION.size()) &&
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

// Freeing the last context ends libsmbclient as a whole, which is not made for being started again: one stays.
bool start_library() noexcept {
  static SMBCCTX* first = nullptr;
  if (first == nullptr) first = new_context();
  return first != nullptr;
}

smb_session& session_of(SMBCCTX* context) noexcept {
  return *static_cast<smb_session*>(smbc_getOptionUserData(context));
}

void put(char* destination, int capacity, const char* text) noexcept {
  if (capacity <= 0) return;
  const std::size_t length = std::min(strlen(text), static_cast<std::size_t>(capacity) - 1);
  memcpy(destination, text, length);
  destination[length] = 0;
}

// Never asks anyone: with the process's own rights libsmbclient's own guess stands.
void tell_credentials(SMBCCTX* context, const char*, const char*, char* domain, int domain_size, char* user,
                      int user_size, char* password, int password_size) {
  const smb_session& session = session_of(context);
  if (session.own_rights) return;
  put(domain, domain_size, session.domain.c_str());
  put(user, user_size, session.user.c_str());
  put(password, password_size, session.password.get());
}

// libsmbclient tells of each connection that it has made; only this says for sure that one was made, because a refused
// path and a refused connection have the same errno.
int connection_made(SMBCCTX* context, SMBCSRV* made, const char* server, const char* share, const char* domain,
                    const char* user) {
  smb_session& session = session_of(context);
  session.reached = made;
  return session.keep_connection(context, made, server, share, domain, user);
}

void set_up(smb_session& session) noexcept {
  SMBCCTX* const context = session.context;
  smbc_setOptionUserData(context, &session);
  smbc_setFunctionAuthDataWithContext(context, tell_credentials);
  session.keep_connection = smbc_getFunctionAddCachedServer(context);
  smbc_setFunctionAddCachedServer(context, connection_made);
  smbc_setPort(context, session.port);
  smbc_setTimeout(context, ANSWER_MILLISECONDS);
  // Logging on to Kerberos with a given password would replace the tickets in the host's own cache.
  smbc_setOptionUseKerberos(context, session.own_rights ? 1 : 0);
  smbc_setOptionFallbackAfterKerberos(context, 1);
  // Given credentials must be right; nobody gets in as a guest for a mistyped password.
  smbc_setOptionNoAutoAnonymousLogin(context, session.own_rights ? 0 : 1);
}

// Connects to a share's root; what the root itself then answers does not matter.
int reach(smb_session& session, const std::string& share) {
  session.reached = nullptr;
  struct stat about {};
  errno = 0;
  (void)smbc_getFunctionStat(session.context)(session.context, smb_url(session, share, "").c_str(), &about);
  if (session.reached != nullptr) return 0;
  return errno != 0 ? errno : EIO;
}

// A host that nobody knows is EINVAL to libsmbclient, as are credentials that a server finds malformed.
bool is_known_host(const smb_session& session) noexcept {
  addrinfo* found = nullptr;
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  if (::getaddrinfo(session.server.c_str(), nullptr, &hints, &found) != 0) return false;
  ::freeaddrinfo(found);
  return true;
}

std::uint32_t network_failure(int error) noexcept {
  if (smb_is_network_error(error)) return SMB_BAD_NETPATH;
  return error == ENOMEM ? SMB_NOT_ENOUGH_MEMORY : SMB_UNEXPECTED_NET_ERROR;
}

// Whether the credentials are good is asked at the share that every server has for all who may log on: there and at the
// wanted share a refusal has the same errno.
std::uint32_t log_on(smb_session& session) {
  const int error = reach(session, "IPC$");
  if (error == 0) {
    (void)smbc_getFunctionRemoveUnusedServer(session.context)(session.context, session.reached);
    return SMB_OK;
  }
  if (error == EINVAL) return is_known_host(session) ? SMB_LOGON_FAILURE : SMB_BAD_NETPATH;
  if (error == EACCES || error == EPERM) return SMB_LOGON_FAILURE;
  return smb_is_network_error(error) || error == ENOMEM ? network_failure(error) : SMB_OK;
}

std::uint32_t reach_share(smb_session& session) {
  const int error = reach(session, session.share);
  if (error == 0) return SMB_OK;
  if (error == EACCES || error == EPERM) return SMB_ACCESS_DENIED;
  if (error == EINVAL && !is_known_host(session)) return SMB_BAD_NETPATH;
  if (error == ENOENT || error == ENODEV || error == ENXIO) return SMB_BAD_NET_NAME;
  return network_failure(error);
}

// Closing files of a lost server would wait for its answer, one after the other.
int leave_open(SMBCCTX*, SMBCFILE*) { return 0; }

bool is_too_long(const char* text) noexcept { return strlen(text) > LONGEST_CREDENTIAL; }

void append_encoded(std::string& url, std::string_view text) {
  static constexpr std::string_view DIGITS = "0123456789ABCDEF";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                       byte == '.' || byte == '-' || byte == '_' || byte == '/';
    if (plain) {
      url += character;
    } else {
      url += '%';
      url += DIGITS[byte >> 4U];
      url += DIGITS[byte & 15U];
    }
  }
}

}  // namespace

smb_secret::~smb_secret() { explicit_bzero(text_.data(), text_.capacity()); }

smb_session::smb_session(const smb_target& target)
    : server(target.server),
      share(target.share),
      domain(target.domain),
      user(target.user),
      password(target.password),
      own_rights(target.own_rights != 0),
      port(target.port) {}

smb_session::~smb_session() {
  if (context == nullptr) return;
  if (dead) smbc_setFunctionClose(context, leave_open);
  smbc_free_context(context, 1);
}

smb_call::smb_call() : lock_(library_lock) {
  sigset_t pending;
  sigemptyset(&pending);
  (void)sigpending(&pending);
  was_pending_ = sigismember(&pending, SIGPIPE) == 1;
  sigset_t sigpipe;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  (void)pthread_sigmask(SIG_BLOCK, &sigpipe, &mask_);
}

smb_call::~smb_call() {
  const int error = errno;
  sigset_t sigpipe;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  const timespec now{};
  // One that we caused is taken back before it could be delivered.
  if (!was_pending_ && sigismember(&mask_, SIGPIPE) == 0) {
    while (::sigtimedwait(&sigpipe, nullptr, &now) < 0 && errno == EINTR) {
    }
  }
  (void)pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  errno = error;
}

std::string smb_url(const smb_session& session, const std::string& share, const char* path) {
  std::string url = "smb://";
  append_encoded(url, session.server);
  url += '/';
  append_encoded(url, share);
  url += '/';
  append_encoded(url, path);
  return url;
}

bool smb_is_network_error(int error) noexcept {
  static constexpr std::array LOST = {ETIMEDOUT,    ECONNREFUSED, ECONNRESET,  ECONNABORTED, ENOTCONN, EPIPE,
                                      EHOSTUNREACH, EHOSTDOWN,    ENETUNREACH, ENETDOWN,     ENETRESET};
  return std::find(LOST.begin(), LOST.end(), error) != LOST.end();
}

int smb_failure(smb_session& session) noexcept {
  const int error = errno != 0 ? errno : EIO;
  if (smb_is_network_error(error)) session.dead = true;
  return error;
}

std::uint32_t smb_connect(const smb_target* target, smb_session** session) noexcept try {
  if (is_too_long(target->domain) || is_too_long(target->user) || is_too_long(target->password)) {
    return SMB_INVALID_PARAMETER;
  }
  const smb_call call;
  auto made = std::make_unique<smb_session>(*target);  // ends before the lock does
  if (!start_library()) return SMB_NOT_SUPPORTED;
  made->context = new_context();
  if (made->context == nullptr) return SMB_NOT_ENOUGH_MEMORY;
  set_up(*made);
  std::uint32_t code = made->own_rights ? SMB_OK : log_on(*made);
  if (code == SMB_OK) code = reach_share(*made);
  if (code != SMB_OK) return code;
  *session = made.release();
  return SMB_OK;
} catch (...) {
  return SMB_NOT_ENOUGH_MEMORY;
}

void smb_disconnect(smb_session* session) noexcept {
  const smb_call call;
  delete session;
}
