// Bytes through the socket pair between library and share program. The program is built with this and the protocol
// alone, so nothing here uses the runtime.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

using qshare_deadline = std::chrono::steady_clock::time_point;
inline constexpr qshare_deadline QSHARE_NO_DEADLINE = qshare_deadline::max();

// When to stop waiting for the peer.
struct qshare_patience {
  qshare_deadline until = QSHARE_NO_DEADLINE;
  bool (*is_cancelled)() noexcept = nullptr;  // asked at least twice a second
};

// `ended`: the peer has gone away, or the wait was cancelled.
enum class qshare_transfer { done, timed_out, ended };

// All of `bytes`, or not `done`. A peer that has gone away never raises SIGPIPE.
[[nodiscard]] qshare_transfer qshare_send(int pair, std::string_view bytes, const qshare_patience& patience) noexcept;
[[nodiscard]] qshare_transfer qshare_receive(int pair, void* buffer, std::size_t size,
                                             const qshare_patience& patience) noexcept;
