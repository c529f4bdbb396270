#include "share/program/smb_watch_posix_user.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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

void* watch(void* argument) {
  pollfd pair{static_cast<int>(reinterpret_cast<std::intptr_t>(argument)), POLLRDHUP, 0};
  while (::poll(&pair, 1, -1) <= 0) {
  }
  ::_exit(0);
}

bool start_watch(int pair) noexcept {
  pthread_attr_t attributes;
  if (::pthread_attr_init(&attributes) != 0) return false;
  ::pthread_attr_setstacksize(&attributes, watch_stack);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const auto number = static_cast<std::intptr_t>(pair);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the number itself is the argument
  const int error = ::pthread_create(&thread, &attributes, watch, reinterpret_cast<void*>(number));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::pthread_attr_destroy(&attributes);
  return error == 0;
}

}  // namespace

bool smb_bound_process(int pair) noexcept {
  // A second heap for the second thread would take address space for nothing.
  (void)::mallopt(M_ARENA_MAX, 1);
  (void)::signal(SIGPIPE, SIG_IGN);
  (void)::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  const rlimit no_core{0, 0};
  const rlimit memory{most_memory, most_memory};
  return ::setrlimit(RLIMIT_CORE, &no_core) == 0 && ::setrlimit(RLIMIT_AS, &memory) == 0 && start_watch(pair);
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
