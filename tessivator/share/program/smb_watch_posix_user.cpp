#include "share/program/smb_watch_posix_user.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr rlim_t most_memory = RLIM_INFINITY;  // what it reserves counts
#else
constexpr rlim_t most_memory = rlim_t{256} << 20U;
#endif
// More than libsmbclient asks for at once.
constexpr std::uint64_t short_of_memory = std::uint64_t{16} << 20U;
constexpr std::size_t watch_stack = std::size_t{64} << 10U;

// The pair's other end, and the process that made it; the latter is -1 where the system has no handles of processes.
struct watched_ends {
  pollfd ends[2];
} watched;

void* watch(void*) {
  while (::poll(watched.ends, std::size(watched.ends), -1) <= 0) {
  }
  ::_exit(0);
}

// Finds what to watch. The pair's end alone is not enough: if the host forks, its child holds the other end as well.
// False when the host has ended already.
bool find_ends(int pair) noexcept {
  watched = {{{pair, POLLRDHUP, 0}, {-1, POLLIN, 0}}};
  ucred maker{};
  socklen_t size = sizeof maker;
  // The number is 0 if the host runs in a namespace of processes that this one cannot see.
  if (::getsockopt(pair, SOL_SOCKET, SO_PEERCRED, &maker, &size) != 0 || maker.pid <= 0) return true;
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, maker.pid, 0));
  if (handle < 0 && errno != ESRCH) return true;
  watched.ends[1].fd = handle;
  return handle >= 0 && ::getppid() == maker.pid;  // else the number may be another process's by now
}

bool start_watch() noexcept {
  pthread_attr_t attributes;
  if (::pthread_attr_init(&attributes) != 0) return false;
  ::pthread_attr_setstacksize(&attributes, watch_stack);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const int error = ::pthread_create(&thread, &attributes, watch, nullptr);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::pthread_attr_destroy(&attributes);
  return error == 0;
}

// A host that runs as root needs its rights for files; a client of servers needs none of them.
bool drop_capabilities() noexcept {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
  return ::syscall(SYS_capset, &header, none) == 0 || ::geteuid() != 0;
}

}  // namespace

bool smb_bound_process(int pair) noexcept {
  // A second heap for the second thread would take address space for nothing.
  (void)::mallopt(M_ARENA_MAX, 1);
  (void)::signal(SIGPIPE, SIG_IGN);
  (void)::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0 || !drop_capabilities()) return false;
  const rlimit no_core{0, 0};
  const rlimit memory{most_memory, most_memory};
  return ::setrlimit(RLIMIT_CORE, &no_core) == 0 && ::setrlimit(RLIMIT_AS, &memory) == 0 && find_ends(pair) &&
         start_watch();
}

bool smb_memory_was_short() noexcept {
  static constexpr std::string_view key = "VmPeak:";
  std::array<char, 4096> text{};
  const int file = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  const ssize_t size = file < 0 ? -1 : ::read(file, text.data(), text.size());
  if (file >= 0) ::close(file);
  if (size <= 0) return false;
  std::string_view status(text.data(), static_cast<std::size_t>(size));
  const std::size_t at = status.find(key);
  if (at == status.npos) return false;
  status.remove_prefix(at + key.size());
  status.remove_prefix(std::min(status.find_first_not_of(" \t"), status.size()));
  std::uint64_t kibibytes = 0;
  (void)std::from_chars(status.data(), status.data() + status.size(), kibibytes);
  constexpr unsigned kibibyte_bits = 10;
  return (kibibytes << kibibyte_bits) > most_memory - short_of_memory;
}
