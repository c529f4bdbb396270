#include "share/qshare_child_posix_user.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "common/qlib/qlib.h"
#include "common/qlib/qmem.h"

namespace {

constexpr std::string_view program_name = "brantle_smb";
constexpr std::string_view program_folder = "libexec/brantle/";
// The program expects its end of the pair at this number, and no descriptors above it.
constexpr int pair_in_child = 3;

std::string real_path(const char* name) {
  const std::unique_ptr<char, FreeWith<std::free>> resolved(::realpath(name, nullptr));
  return resolved ? resolved.get() : "";
}

// The absolute path of the program or library with this code; empty when unknown.
std::string own_path() {
  Dl_info about{};
  void* extra = nullptr;
  if (::dladdr1(reinterpret_cast<const void*>(&qshare_child::start), &about, &extra, RTLD_DL_LINKMAP) == 0) return {};
  const auto* const map = static_cast<const link_map*>(extra);
  // The loader has no name for the main program, only what the caller chose.
  const bool is_program = map == nullptr || map->l_name == nullptr || map->l_name[0] == 0;
  const char* const name = is_program ? "/proc/self/exe" : map->l_name;
  if (name[0] != '/') return {};  // loaded by a relative path, and the current directory may be another now
  return real_path(name);
}

std::string_view folder_of(std::string_view path) noexcept { return path.substr(0, path.rfind('/')); }

std::string_view name_of(std::string_view path) noexcept { return path.substr(path.rfind('/') + 1); }

bool is_library_folder(std::string_view name) noexcept {
  return name == "lib" || name == "lib64" || name == "lib32" || name == "libx32";
}

// The folder of an installation for internal programs: PREFIX of PREFIX/bin, PREFIX/lib or PREFIX/lib/<any>. Empty
// elsewhere, so that a library in a public folder searches nowhere above it.
std::string_view prefix_of(std::string_view folder) noexcept {
  const std::string_view above = folder_of(folder);
  if (name_of(folder) == "bin" || is_library_folder(name_of(folder))) return above;
  return is_library_folder(name_of(above)) ? folder_of(above) : std::string_view();
}

// Do not start a program that others could have written.
bool is_trusted(const std::string& path, const struct stat& own) noexcept {
  struct stat about {};
  if (::stat(path.c_str(), &about) != 0 || !S_ISREG(about.st_mode) || (about.st_mode & S_IWOTH) != 0) return false;
  return about.st_uid == 0 || about.st_uid == own.st_uid || about.st_uid == ::geteuid();
}

std::string find_program() {
  const std::string own = own_path();
  struct stat about {};
  if (own.empty() || ::stat(own.c_str(), &about) != 0) return {};
  const std::string_view folder = folder_of(own);
  std::string beside(folder);
  (beside += '/') += program_name;
  if (is_trusted(beside, about)) return beside;
  const std::string_view prefix = prefix_of(folder);
  if (prefix.data() == nullptr) return {};
  std::string installed(prefix);
  ((installed += '/') += program_folder) += program_name;
  return is_trusted(installed, about) ? installed : std::string();
}

// The only part of our environment that the program may see: where Kerberos tickets are.
std::vector<std::string> environment() {
  std::vector<std::string> kept{"LC_ALL=C.UTF-8"};
  for (const char* const name : {"KRB5CCNAME", "KRB5_CONFIG"}) {
    const char* const value = ::secure_getenv(name);  // NOLINT(concurrency-mt-unsafe): read only
    if (value != nullptr) kept.push_back(std::string(name) + "=" + value);
  }
  return kept;
}

// Above the numbers of the descriptors of the child, so that setting one never closes another.
qsys_descriptor moved_up(qsys_descriptor low) noexcept {
  constexpr int lowest = pair_in_child + 1;
  return qsys_descriptor(::fcntl(low.get(), F_DUPFD_CLOEXEC, lowest));
}

bool make_pair(qsys_descriptor& ours, qsys_descriptor& theirs) noexcept {
  std::array<int, 2> ends{-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
  ours = qsys_descriptor(ends[0]);
  theirs = moved_up(qsys_descriptor(ends[1]));
  return theirs.valid();
}

// What the child does before it executes the program: /dev/null as standard input, output and error, its end of the
// pair after them, nothing else; no signal blocked or ignored. It has its own session, so no terminal reaches it.
class start_plan {
 public:
  explicit start_plan(int pair) noexcept {
    ready_ = ::posix_spawn_file_actions_init(&files_) == 0;
    if (!ready_) return;
    if (::posix_spawnattr_init(&attributes_) != 0) {
      ::posix_spawn_file_actions_destroy(&files_);
      ready_ = false;
      return;
    }
    sigset_t signals;
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
    planned_ = ::posix_spawn_file_actions_addopen(&files_, 0, "/dev/null", O_RDWR, 0) == 0 &&
               ::posix_spawn_file_actions_adddup2(&files_, 0, 1) == 0 &&
               ::posix_spawn_file_actions_adddup2(&files_, 0, 2) == 0 &&
               ::posix_spawn_file_actions_adddup2(&files_, pair, pair_in_child) == 0 &&
               ::posix_spawn_file_actions_addclosefrom_np(&files_, pair_in_child + 1) == 0;
  }
  start_plan(const start_plan&) = delete;
  start_plan& operator=(const start_plan&) = delete;
  ~start_plan() {
    if (!ready_) return;
    ::posix_spawn_file_actions_destroy(&files_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  // The process, or -1.
  pid_t run(std::string& program, std::vector<std::string>& environment) const {
    if (!ready_ || !planned_) return -1;
    std::string name(program_name);
    std::array<char*, 2> arguments{name.data(), nullptr};
    std::vector<char*> variables;
    variables.reserve(environment.size() + 1);
    for (std::string& one : environment) variables.push_back(one.data());
    variables.push_back(nullptr);
    pid_t process = -1;
    const int error =
        ::posix_spawn(&process, program.c_str(), &files_, &attributes_, arguments.data(), variables.data());
    return error == 0 ? process : -1;
  }

 private:
  posix_spawn_file_actions_t files_{};
  posix_spawnattr_t attributes_{};
  bool ready_ = false;
  bool planned_ = false;
};

}  // namespace

bool qshare_child::has_program() { return !find_program().empty(); }

std::unique_ptr<qshare_child> qshare_child::start() {
  std::string program = find_program();
  if (program.empty()) return nullptr;
  std::vector<std::string> variables = environment();
  std::unique_ptr<qshare_child> child(new qshare_child);
  qsys_descriptor theirs;
  if (!make_pair(child->pair_, theirs)) return nullptr;
  child->process_ = start_plan(theirs.get()).run(program, variables);
  if (child->process_ < 0) return nullptr;
  child->handle_ = qsys_descriptor(static_cast<int>(::syscall(SYS_pidfd_open, child->process_, 0)));
  return child;
}

qshare_child::~qshare_child() {
  if (process_ < 0) return;
  // If the host waits for any child, the number may belong to another process by now; the handle never does.
  if (handle_.valid()) (void)::syscall(SYS_pidfd_send_signal, handle_.get(), SIGKILL, nullptr, 0);
  pair_ = qsys_descriptor();  // without a handle it ends by this alone
  const bool by_handle = handle_.valid();
  const auto id = static_cast<id_t>(by_handle ? handle_.get() : process_);
  siginfo_t ended{};
  // ECHILD: the host has waited for it, or lets the kernel do that.
  (void)qsys_retry([&] { return ::waitid(by_handle ? P_PIDFD : P_PID, id, &ended, WEXITED); });
}

qshare_transfer qshare_child::send(std::string_view frame, qshare_deadline until) const noexcept {
  return qshare_send(pair_.get(), frame, {until, qlib_is_cancelled});
}

qshare_transfer qshare_child::head(qshare_kind kind, std::uint32_t most, qshare_head& head,
                                   qshare_deadline until) const noexcept {
  std::array<std::byte, QSHARE_HEAD_BYTES> bytes{};
  const qshare_transfer received = qshare_receive(pair_.get(), bytes.data(), bytes.size(), {until, qlib_is_cancelled});
  if (received != qshare_transfer::done) return received;
  const bool good = qshare_take_head(bytes, head) && head.kind == kind && head.size <= most;
  return good ? qshare_transfer::done : qshare_transfer::ended;
}

qshare_transfer qshare_child::take(void* buffer, std::size_t size, qshare_deadline until) const noexcept {
  return qshare_receive(pair_.get(), buffer, size, {until, qlib_is_cancelled});
}
