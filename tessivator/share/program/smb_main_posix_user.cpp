// The share program: started by the library, one for each request that touches a share, it holds libsmbclient and one
// connection, and answers questions from its standard place, descriptor 3, until that is closed.
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <new>
#include <variant>

#include "share/program/smb_listing_posix_user.h"
#include "share/program/smb_watch_posix_user.h"
#include "share/qshare_pair_posix_user.h"

namespace {

constexpr int own_end = 3;

constexpr std::uint16_t port = 445;

struct open_file {
  SMBCFILE* handle = nullptr;
  std::uint64_t size = 0;
};

void take(const struct stat& about, qshare_info& info) noexcept {
  info.is_directory = S_ISDIR(about.st_mode);
  info.size = !info.is_directory && about.st_size > 0 ? static_cast<std::uint64_t>(about.st_size) : 0;
  info.number = about.st_ino;
  info.write_seconds = about.st_mtim.tv_sec;
  info.write_nanoseconds = static_cast<std::uint32_t>(about.st_mtim.tv_nsec);
}

class program {
 public:
  // Answers until the own_end ends, or the server does.
  int run();

 private:
  bool take_question(qshare_head& head);
  bool answer(const qshare_head& head);
  bool connect(ByteReader& question);
  bool open(ByteReader& question);
  bool read(ByteReader& question);
  bool list(ByteReader& question);
  bool information(ByteReader& question);
  bool close(ByteReader& question);

  bool send(std::string_view bytes) { return qshare_send(own_end, bytes, {}) == qshare_transfer::done; }
  // After the loss of the server there is nothing more to say.
  bool fail(qshare_frame& frame, int error) {
    return send(frame.fail(static_cast<std::uint32_t>(error))) && error != ENOTCONN;
  }
  int fetch(const open_file& file, std::uint64_t offset, std::size_t size, std::size_t kept = 0);
  void fetch_ahead(std::uint32_t number, const open_file& file, std::uint64_t offset, std::size_t size);

  smb_server server_{port};
  smb_target target_;
  std::string question_;
  std::map<std::uint32_t, std::variant<open_file, std::unique_ptr<smb_listing>>> opened_;
  std::uint32_t last_number_ = 0;

  // The bytes that were fetched last: of a file, from an offset on.
  std::string piece_;
  std::uint32_t piece_file_ = 0;
  std::uint64_t piece_at_ = 0;
  std::uint64_t read_to_ = 0;  // where the last answer for that file ended
};

bool program::take_question(qshare_head& head) {
  std::byte bytes[QSHARE_HEAD_BYTES];
  if (qshare_receive(own_end, bytes, sizeof bytes, {}) != qshare_transfer::done) return false;
  if (!qshare_take_head(bytes, head) || head.size > QSHARE_MOST_QUESTION) return false;
  question_.resize(head.size);
  return qshare_receive(own_end, question_.data(), question_.size(), {}) == qshare_transfer::done;
}

bool program::answer(const qshare_head& head) {
  ByteReader question(std::as_bytes(std::span(question_)));
  const bool connected = server_.context() != nullptr;
  if (head.kind == qshare_kind::connect) return !connected && connect(question);
  if (!connected) return false;
  switch (head.kind) {
    case qshare_kind::open:
      return open(question);
    case qshare_kind::read:
      return read(question);
    case qshare_kind::list:
      return list(question);
    case qshare_kind::information:
      return information(question);
    case qshare_kind::close:
      return close(question);
    default:
      return false;
  }
}

bool program::connect(ByteReader& question) {
  std::uint8_t own_rights = 0;
  std::string_view texts[5];
  bool good = question.le(own_rights);
  for (std::string_view& text : texts) good = good && qshare_take_text(question, text);
  if (!good) return false;
  target_.own_rights = own_rights != 0;
  target_.server = texts[0];
  target_.share = texts[1];
  target_.domain = texts[2];
  target_.user = texts[3];
  target_.password.reserve(texts[4].size());
  target_.password = texts[4];
  explicit_bzero(question_.data(), question_.capacity());
  const std::uint32_t code = server_.connect(target_);
  qshare_frame frame(qshare_kind::connect);
  return send(frame.finish(code)) && code == QSHARE_OK;
}

// Of the piece, the first `kept` bytes are what was fetched before.
int program::fetch(const open_file& file, std::uint64_t offset, std::size_t size, std::size_t kept) {
  SMBCCTX* const context = server_.context();
  piece_.resize(size);
  piece_file_ = 0;
  errno = 0;
  // Positions are libsmbclient's own; setting one costs no request.
  if (smbc_getFunctionLseek(context)(context, file.handle, static_cast<off_t>(offset + kept), SEEK_SET) < 0) {
    return server_.failure();
  }
  const std::size_t rest = size - kept;
  const ssize_t got = rest == 0 ? 0 : smbc_getFunctionRead(context)(context, file.handle, piece_.data() + kept, rest);
  if (got < 0) return server_.failure();
  piece_.resize(kept + static_cast<std::size_t>(got));
  return 0;
}

bool program::open(ByteReader& question) {
  std::uint32_t wanted = 0;
  std::string_view path;
  if (!question.le(wanted) || wanted > QSHARE_MOST_READ || !qshare_take_text(question, path)) return false;
  qshare_frame frame(qshare_kind::open);
  SMBCCTX* const context = server_.context();
  errno = 0;
  open_file file;
  file.handle = smbc_getFunctionOpen(context)(context, server_.url(path).c_str(), O_RDONLY, 0);
  if (file.handle == nullptr) return fail(frame, server_.failure());
  const std::uint32_t number = ++last_number_;
  open_file& kept = std::get<open_file>(opened_.emplace(number, file).first->second);
  struct stat about {};
  if (smbc_getFunctionFstat(context)(context, kept.handle, &about) != 0) return fail(frame, server_.failure());
  qshare_info info;
  take(about, info);
  kept.size = info.size;
  const int error = fetch(kept, 0, static_cast<std::size_t>(std::min<std::uint64_t>(wanted, kept.size)));
  if (error == ENOTCONN) return fail(frame, error);
  if (error != 0) piece_.clear();  // whoever reads there will be told
  frame.le(number);
  frame.information(info);
  return send(frame.finish(0, piece_.size())) && send(piece_);
}

bool program::read(ByteReader& question) {
  std::uint32_t number = 0;
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  if (!question.le(number) || !question.le(offset) || !question.le(size) || size > QSHARE_MOST_READ) return false;
  const auto found = opened_.find(number);
  const auto* const file = found != opened_.end() ? std::get_if<open_file>(&found->second) : nullptr;
  if (file == nullptr) return false;
  qshare_frame frame(qshare_kind::read);
  size = offset < file->size ? static_cast<std::uint32_t>(std::min<std::uint64_t>(size, file->size - offset)) : 0;
  const bool goes_on = offset == read_to_;
  const bool is_ahead = piece_file_ == number && piece_at_ == offset;
  const std::size_t kept = is_ahead ? std::min<std::size_t>(piece_.size(), size) : 0;
  if (kept < size) {
    if (const int error = fetch(*file, offset, size, kept); error != 0) return fail(frame, error);
  }
  const std::string_view bytes = std::string_view(piece_).substr(0, size);
  read_to_ = offset + bytes.size();
  if (!send(frame.finish(0, bytes.size())) || !send(bytes)) return false;
  if (goes_on && bytes.size() == size) fetch_ahead(number, *file, read_to_, size);
  return true;
}

// What a reader who goes on will ask for next, while it works on what it has.
void program::fetch_ahead(std::uint32_t number, const open_file& file, std::uint64_t offset, std::size_t size) {
  pollfd one{own_end, POLLIN, 0};
  if (offset >= file.size || ::poll(&one, 1, 0) != 0) return;
  if (fetch(file, offset, static_cast<std::size_t>(std::min<std::uint64_t>(size, file.size - offset))) != 0) return;
  piece_file_ = number;
  piece_at_ = offset;
}

bool program::list(ByteReader& question) {
  std::uint32_t number = 0;
  std::uint32_t from = 0;
  std::string_view path;
  if (!question.le(number) || !question.le(from) || !qshare_take_text(question, path)) return false;
  qshare_frame frame(qshare_kind::list);
  if (number == 0) {
    auto listing = std::make_unique<smb_listing>();
    if (const int error = listing->read(server_, path); error != 0) return fail(frame, error);
    number = ++last_number_;
    opened_.emplace(number, std::move(listing));
  }
  const auto found = opened_.find(number);
  const auto* const listing =
      found != opened_.end() ? std::get_if<std::unique_ptr<smb_listing>>(&found->second) : nullptr;
  if (listing == nullptr) return false;
  frame.le(number);
  frame.le((*listing)->directory());
  (*listing)->append_from(from, frame);
  return send(frame.finish());
}

bool program::information(ByteReader& question) {
  std::string_view path;
  if (!qshare_take_text(question, path)) return false;
  qshare_frame frame(qshare_kind::information);
  struct stat about {};
  errno = 0;
  if (smbc_getFunctionStat(server_.context())(server_.context(), server_.url(path).c_str(), &about) != 0) {
    return fail(frame, server_.failure());
  }
  qshare_info info;
  take(about, info);
  frame.information(info);
  return send(frame.finish());
}

bool program::close(ByteReader& question) {
  std::uint32_t number = 0;
  if (!question.le(number)) return false;
  const auto found = opened_.find(number);
  if (found == opened_.end()) return true;
  const auto* const file = std::get_if<open_file>(&found->second);
  if (file != nullptr) (void)smbc_getFunctionClose(server_.context())(server_.context(), file->handle);
  opened_.erase(found);
  return true;
}

int program::run() {
  qshare_head head;
  while (take_question(head)) {
    try {
      if (!answer(head)) break;
    } catch (const std::bad_alloc&) {
      qshare_frame frame(head.kind);
      if (!send(frame.fail(ENOMEM))) break;
    }
  }
  return 0;
}

bool is_started_by_library() noexcept {
  int kind = 0;
  socklen_t size = sizeof kind;
  return ::getsockopt(own_end, SOL_SOCKET, SO_DOMAIN, &kind, &size) == 0 && kind == AF_UNIX;
}

}  // namespace

int main() {
  if (!is_started_by_library()) {
    static constexpr char said[] = "brantle_smb reads shares for brantle, which starts it.\n";
    return ::write(STDERR_FILENO, said, sizeof said - 1) < 0 ? 2 : 1;
  }
  if (!smb_bound_process(own_end)) return 2;
  const int code = program().run();
  // Without libsmbclient's own end, which would speak to the server.
  ::_exit(code);
}
