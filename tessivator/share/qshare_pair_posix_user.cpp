#include "share/qshare_pair_posix_user.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>

namespace {

int milliseconds_to(qshare_deadline until) noexcept {
  if (until == QSHARE_NO_DEADLINE) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  constexpr std::chrono::milliseconds most(500);  // a signal may come just before the wait begins
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), most).count());
}

qshare_transfer wait_for(int pair, short events, const qshare_patience& patience) noexcept {
  for (;;) {
    if (patience.is_cancelled != nullptr && patience.is_cancelled()) return qshare_transfer::ended;
    pollfd one{pair, events, 0};
    const int ready = ::poll(&one, 1, milliseconds_to(patience.until));
    if (ready > 0) return qshare_transfer::done;
    if (ready < 0 && errno != EINTR) return qshare_transfer::ended;
    if (ready == 0 && std::chrono::steady_clock::now() >= patience.until) return qshare_transfer::timed_out;
  }
}

// `move` transfers without waiting and answers how much, as send and recv do.
template <class Move>
qshare_transfer transfer(int pair, short events, std::size_t size, const qshare_patience& patience,
                         Move move) noexcept {
  for (std::size_t done = 0; done < size;) {
    const ssize_t moved = move(done);
    if (moved > 0) {
      done += static_cast<std::size_t>(moved);
      continue;
    }
    if (moved == 0) return qshare_transfer::ended;
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return qshare_transfer::ended;
    const qshare_transfer waited = wait_for(pair, events, patience);
    if (waited != qshare_transfer::done) return waited;
  }
  return qshare_transfer::done;
}

}  // namespace

qshare_transfer qshare_send(int pair, std::string_view bytes, const qshare_patience& patience) noexcept {
  return transfer(pair, POLLOUT, bytes.size(), patience, [&](std::size_t done) {
    return ::send(pair, bytes.data() + done, bytes.size() - done, MSG_DONTWAIT | MSG_NOSIGNAL);
  });
}

qshare_transfer qshare_receive(int pair, void* buffer, std::size_t size, const qshare_patience& patience) noexcept {
  return transfer(pair, POLLIN, size, patience, [&](std::size_t done) {
    return ::recv(pair, static_cast<char*>(buffer) + done, size - done, MSG_DONTWAIT);
  });
}
