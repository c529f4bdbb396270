// Bytes through the socket pair between library and share program.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

using qshare_deadline = std::chrono::steady_clock::time_point;
inline constexpr qshare_deadline QSHARE_NO_DEADLINE = qshare_deadline::max();

// `ended`: the peer has gone away, or this process was told to end (qlib_cancel).
enum class qshare_transfer { done, timed_out, ended };

// All of `bytes`, or not `done`. A peer that has gone away never raises SIGPIPE.
[[nodiscard]] qshare_transfer qshare_send(int pair, std::string_view bytes, qshare_deadline until) noexcept;
[[nodiscard]] qshare_transfer qshare_receive(int pair, void* buffer, std::size_t size, qshare_deadline until) noexcept;
