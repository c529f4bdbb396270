// Identities, time, events and threads on Windows.
#include "common/qlib/qsys_winnt_user.h"

#include <algorithm>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qsys.h"

namespace {

constexpr std::uint64_t ticks_per_ms = 10000;               // FILETIME counts 100 ns
constexpr std::uint64_t epoch_1970_ms = 11644473600000ULL;  // from 1601 to 1970

class winnt_event final : public qsys_event {
 public:
  explicit winnt_event(qsys_handle&& handle) noexcept : handle_(std::move(handle)) {}
  void set() noexcept override { SetEvent(handle_.get()); }
  qerr_t wait(std::uint32_t timeout_ms) noexcept override {
    switch (WaitForSingleObject(handle_.get(), timeout_ms)) {
      case WAIT_OBJECT_0:
        return QERR_OK;
      case WAIT_TIMEOUT:
        return QERR_TIMER_EXPIRED;
      default:
        return qsys_last_code();
    }
  }

 private:
  qsys_handle handle_;
};

class winnt_thread final : public qsys_thread {
 public:
  winnt_thread(void (*body)(void*) noexcept, void* argument) noexcept : body_(body), argument_(argument) {}
  winnt_thread(const winnt_thread&) = delete;
  winnt_thread& operator=(const winnt_thread&) = delete;
  ~winnt_thread() override {
    if (handle_.valid()) WaitForSingleObject(handle_.get(), INFINITE);
  }
  bool start() noexcept {
    handle_ = qsys_handle(CreateThread(nullptr, 0, &winnt_thread::run, this, 0, nullptr));
    return handle_.valid();
  }

 private:
  static DWORD WINAPI run(void* self) noexcept {
    auto* thread = static_cast<winnt_thread*>(self);
    thread->body_(thread->argument_);
    return 0;
  }
  void (*body_)(void*) noexcept;
  void* argument_;
  qsys_handle handle_;
};

struct local_freer {
  void operator()(wchar_t* text) const noexcept { LocalFree(text); }
};

}  // namespace

std::uint32_t qsys_process_id() noexcept { return GetCurrentProcessId(); }

std::uint32_t qsys_thread_id() noexcept { return GetCurrentThreadId(); }

std::u16string qsys_environment(const char* name) {
  const std::wstring wide(name, name + std::char_traits<char>::length(name));
  std::wstring value(GetEnvironmentVariableW(wide.c_str(), nullptr, 0), L'\0');  // with its terminator
  value.resize(GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size())));
  return std::u16string(qsys_units(value));
}

std::uint64_t qsys_time_ms() noexcept {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
  return ticks / ticks_per_ms - epoch_1970_ms;
}

qsys_local_time qsys_to_local_time(std::uint64_t time_ms) noexcept {
  const std::uint64_t ticks = (time_ms + epoch_1970_ms) * ticks_per_ms;
  const FILETIME time{static_cast<DWORD>(ticks & 0xFFFFFFFFU), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc{};
  SYSTEMTIME local{};
  if (FileTimeToSystemTime(&time, &utc) == 0 || SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) == 0) return {};
  return {local.wYear, local.wMonth - 1U, local.wDay, local.wHour, local.wMinute, local.wSecond};
}

std::uint32_t qsys_last_error() noexcept { return GetLastError(); }

qerr_t qsys_last_code() noexcept { return qerr_from_win32(GetLastError()); }

std::u16string qsys_message_text(std::uint32_t value) {
  wchar_t* allocated = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, value,
      MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), reinterpret_cast<wchar_t*>(&allocated), 0, nullptr);
  const std::unique_ptr<wchar_t, local_freer> owner(allocated);
  if (length == 0 || allocated == nullptr) return {};
  std::u16string text(qsys_units({allocated, length}));
  while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n')) text.pop_back();
  return text;
}

qerr_t qsys_event_create(std::unique_ptr<qsys_event>& event) noexcept {
  qsys_handle handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!handle.valid()) return qsys_last_code();
  event.reset(new (std::nothrow) winnt_event(std::move(handle)));
  return event ? QERR_OK : QERR_LOW_MEMORY;
}

qerr_t qsys_thread_start(std::unique_ptr<qsys_thread>& thread, void (*body)(void*) noexcept, void* argument) noexcept {
  std::unique_ptr<winnt_thread> made(new (std::nothrow) winnt_thread(body, argument));
  if (!made) return QERR_LOW_MEMORY;
  if (!made->start()) return qsys_last_code();
  thread = std::move(made);
  return QERR_OK;
}
