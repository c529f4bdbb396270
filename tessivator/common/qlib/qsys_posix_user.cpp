// Identities, time, events and threads on POSIX systems.
#include "common/qlib/qsys_posix_user.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys.h"

namespace {

class posix_event final : public qsys_event {
 public:
  posix_event() noexcept = default;
  posix_event(const posix_event&) = delete;
  posix_event& operator=(const posix_event&) = delete;
  ~posix_event() override {
    if (made_) pthread_cond_destroy(&condition_);
    pthread_mutex_destroy(&mutex_);
  }
  // Uses the monotonic clock, so setting the wall clock does not change a wait.
  int make() noexcept {
    pthread_condattr_t attributes;
    int error = pthread_condattr_init(&attributes);
    if (error != 0) return error;
    error = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    if (error == 0) error = pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
    made_ = error == 0;
    return error;
  }
  void set() noexcept override {
    pthread_mutex_lock(&mutex_);
    set_ = true;
    pthread_cond_broadcast(&condition_);
    pthread_mutex_unlock(&mutex_);
  }
  qerr_t wait(std::uint32_t timeout_ms) noexcept override {
    timespec until{};
    if (clock_gettime(CLOCK_MONOTONIC, &until) != 0) return qsys_code_of(errno);
    until.tv_sec += timeout_ms / 1000;
    until.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1000000;
    if (until.tv_nsec >= 1000000000) {
      ++until.tv_sec;
      until.tv_nsec -= 1000000000;
    }
    pthread_mutex_lock(&mutex_);
    int error = 0;
    while (!set_ && error == 0) error = pthread_cond_timedwait(&condition_, &mutex_, &until);
    const bool was_set = set_;
    pthread_mutex_unlock(&mutex_);
    if (was_set) return QERR_OK;
    return error == ETIMEDOUT ? QERR_TIMER_EXPIRED : qsys_code_of(error);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition_{};
  bool made_ = false;
  bool set_ = false;
};

class posix_thread final : public qsys_thread {
 public:
  posix_thread(void (*body)(void*) noexcept, void* argument) noexcept : body_(body), argument_(argument) {}
  posix_thread(const posix_thread&) = delete;
  posix_thread& operator=(const posix_thread&) = delete;
  ~posix_thread() override {
    if (started_) pthread_join(thread_, nullptr);
  }
  // Signals are handled by the threads of the host only.
  int start() noexcept {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&thread_, nullptr, &posix_thread::run, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    started_ = error == 0;
    return error;
  }

 private:
  static void* run(void* self) noexcept {
    auto* thread = static_cast<posix_thread*>(self);
    thread->body_(thread->argument_);
    return nullptr;
  }
  void (*body_)(void*) noexcept;
  void* argument_;
  pthread_t thread_{};
  bool started_ = false;
};

}  // namespace

std::uint32_t qsys_process_id() noexcept { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t qsys_thread_id() noexcept { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

std::u16string qsys_environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): read only
  return value == nullptr ? std::u16string() : qstr_name_from_bytes(value);
}

std::uint64_t qsys_time_ms() noexcept {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0 || now.tv_sec < 0) return 0;
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

qsys_local_time qsys_to_local_time(std::uint64_t time_ms) noexcept {
  const auto seconds = static_cast<time_t>(time_ms / 1000);
  tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return {};
  const auto unsigned_of = [](int value) { return static_cast<std::uint32_t>(value); };
  return {unsigned_of(parts.tm_year + 1900), unsigned_of(parts.tm_mon), unsigned_of(parts.tm_mday),
          unsigned_of(parts.tm_hour),        unsigned_of(parts.tm_min), unsigned_of(parts.tm_sec)};
}

std::uint32_t qsys_last_error() noexcept { return static_cast<std::uint32_t>(errno); }

qerr_t qsys_last_code() noexcept { return qsys_code_of(errno); }

// Linux only knows texts for its own numbers, and a code of 100000 or more may come from a Windows table; the fixed
// text of the caller serves for all.
std::u16string qsys_message_text(std::uint32_t value) {
  (void)value;
  return {};
}

qerr_t qsys_event_create(std::unique_ptr<qsys_event>& event) noexcept {
  std::unique_ptr<posix_event> made(new (std::nothrow) posix_event);
  if (!made) return QERR_LOW_MEMORY;
  const int error = made->make();
  if (error != 0) return qsys_code_of(error);
  event = std::move(made);
  return QERR_OK;
}

qerr_t qsys_thread_start(std::unique_ptr<qsys_thread>& thread, void (*body)(void*) noexcept, void* argument) noexcept {
  std::unique_ptr<posix_thread> made(new (std::nothrow) posix_thread(body, argument));
  if (!made) return QERR_LOW_MEMORY;
  const int error = made->start();
  if (error != 0) return qsys_code_of(error);
  thread = std::move(made);
  return QERR_OK;
}
