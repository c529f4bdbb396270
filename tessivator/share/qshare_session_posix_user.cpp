#include "share/qshare_session_posix_user.h"

#include <cerrno>

#include "common/qlib/qlib.h"
#include "common/qlib/qmem.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// The program gives up on a server that does not answer a request for 10 seconds. These limits are for a program that
// does not answer itself, with room for all requests of one question.
constexpr seconds connect_time(110);
constexpr seconds answer_time(60);
// A listing takes as many requests as the server wants.
constexpr seconds listing_time(60);
constexpr seconds close_time(5);

constexpr std::size_t info_bytes = 8 + 8 + 8 + 4 + 1;

Bytes bytes_of(const std::string& text) noexcept { return std::as_bytes(std::span(text.data(), text.size())); }

// The program is out of memory, or holds too much.
bool is_limit(int error) noexcept { return error == ENOMEM || error == ETIME || error == EOVERFLOW; }

bool same_file(const qshare_info& a, const qshare_info& b) noexcept {
  return a.size == b.size && a.write_seconds == b.write_seconds && a.write_nanoseconds == b.write_nanoseconds;
}

bool take_entries(ByteReader& reader, std::vector<qshare_entry>& entries) {
  while (reader.remaining() > 0) {
    qshare_entry entry;
    std::string_view name;
    if (!reader.le(entry.attributes) || !reader.le(entry.number) || !qshare_take_text(reader, name)) return false;
    if (name.empty() || name.find('\0') != name.npos) return false;
    entry.name = name;
    entries.push_back(std::move(entry));
  }
  return true;
}

}  // namespace

qshare_target::~qshare_target() { qmem_wipe(password.data(), password.capacity()); }

std::uint32_t qshare_session::connect() {
  std::uint32_t code = connect_once();
  // The server, or the program, was reached and is lost.
  if (code == QSHARE_NETNAME_DELETED || code == QSHARE_NOT_SUPPORTED) code = connect_once();
  return code == QSHARE_NETNAME_DELETED ? QSHARE_BAD_NETPATH : code;
}

std::uint32_t qshare_session::connect_once() {
  program_ = qshare_child::start();
  ++programs_;
  if (!program_) return QSHARE_NOT_SUPPORTED;
  qshare_frame question(qshare_kind::connect);
  question.le(static_cast<std::uint8_t>(target_->own_rights));
  for (const std::string* text : {&target_->server, &target_->share, &target_->domain, &target_->user}) {
    if (text->size() > QSHARE_MOST_TEXT) return QSHARE_INVALID_PARAMETER;
    question.text(*text);
  }
  if (target_->password.size() > QSHARE_MOST_TEXT) return QSHARE_INVALID_PARAMETER;
  // Reserved in one piece: a string that grows leaves copies behind.
  question.reserve(question.size() + sizeof(std::uint16_t) + target_->password.size());
  question.text(target_->password);
  const qshare_deadline until = steady_clock::now() + connect_time;
  qshare_head head;
  qshare_transfer done = program_->send(question.finish(), until);
  qmem_wipe(question.memory().data(), question.memory().size());
  if (done == qshare_transfer::done) done = program_->head(qshare_kind::connect, 0, head, until);
  if (done == qshare_transfer::done && head.result == QSHARE_OK) return QSHARE_OK;
  program_.reset();
  if (done == qshare_transfer::ended) return QSHARE_NOT_SUPPORTED;
  return done == qshare_transfer::timed_out ? QSHARE_BAD_NETPATH : head.result;
}

// Sends the request, and again to a new program when the program or its server is lost; not after a cancel.
template <class Ask>
int qshare_session::with_program(qshare_subject& subject, Ask ask) try {
  for (;;) {
    if (!dead_ && !program_) dead_ = connect() != QSHARE_OK;
    if (dead_) return ENOTCONN;
    const int error = ask();
    if (is_limit(error)) program_.reset();
    if (error != ENOTCONN) return error;
    program_.reset();
    dead_ = qlib_is_cancelled() || subject.was_lost || (last_lost_.was_lost && last_lost_.path == subject.path);
    subject.was_lost = true;
    last_lost_ = subject;
  }
} catch (...) {
  program_.reset();  // an answer may be on its way still
  throw;
}

int qshare_session::ask(qshare_frame& question, qshare_kind kind, std::uint32_t most, qshare_deadline until,
                        qshare_head& head) {
  if (program_->send(question.finish(), until) != qshare_transfer::done) return ENOTCONN;
  const qshare_transfer done = program_->head(kind, most, head, until);
  if (done == qshare_transfer::timed_out && kind == qshare_kind::list) return ETIME;
  if (done != qshare_transfer::done) return ENOTCONN;
  if (head.result == 0) return 0;
  return head.size == 0 && head.result <= static_cast<std::uint32_t>(QSHARE_MOST_TEXT) ? static_cast<int>(head.result)
                                                                                       : ENOTCONN;
}

int qshare_session::take(void* buffer, std::size_t size, qshare_deadline until) {
  return program_->take(buffer, size, until) == qshare_transfer::done ? 0 : ENOTCONN;
}

int qshare_session::ask_information(const std::string& path, qshare_info& about) {
  qshare_frame question(qshare_kind::information);
  question.text(path);
  const qshare_deadline until = steady_clock::now() + answer_time;
  qshare_head head;
  if (const int error = ask(question, qshare_kind::information, info_bytes, until, head); error != 0) return error;
  std::string payload(head.size, '\0');
  if (const int error = take(payload.data(), payload.size(), until); error != 0) return error;
  ByteReader reader(bytes_of(payload));
  return qshare_take_info(reader, about) && reader.remaining() == 0 ? 0 : ENOTCONN;
}

int qshare_session::ask_open(const std::string& path, qshare_info& about, qshare_number& file, std::string& first) {
  constexpr std::size_t before_bytes = sizeof(std::uint32_t) + info_bytes;
  qshare_frame question(qshare_kind::open);
  question.le(static_cast<std::uint32_t>(first.size()));
  question.text(path);
  const qshare_deadline until = steady_clock::now() + answer_time;
  qshare_head head;
  const auto most = static_cast<std::uint32_t>(before_bytes + first.size());
  if (const int error = ask(question, qshare_kind::open, most, until, head); error != 0) return error;
  if (head.size < before_bytes) return ENOTCONN;
  std::array<std::byte, before_bytes> before{};
  if (const int error = take(before.data(), before.size(), until); error != 0) return error;
  ByteReader reader(before);
  if (!reader.le(file.number) || !qshare_take_info(reader, about)) return ENOTCONN;
  first.resize(head.size - before_bytes);
  if (const int error = take(first.data(), first.size(), until); error != 0) return error;
  file.program = programs_;
  return first.size() <= about.size ? 0 : ENOTCONN;
}

int qshare_session::ask_read(const qshare_number& file, std::uint64_t offset, std::byte* buffer, std::uint32_t size,
                             std::uint32_t& done) {
  qshare_frame question(qshare_kind::read);
  question.le(file.number);
  question.le(offset);
  question.le(size);
  const qshare_deadline until = steady_clock::now() + answer_time;
  qshare_head head;
  if (const int error = ask(question, qshare_kind::read, size, until, head); error != 0) return error;
  if (const int error = take(buffer, head.size, until); error != 0) return error;
  done = head.size;
  return 0;
}

int qshare_session::ask_list(const std::string& path, qshare_number& list, std::uint32_t from, listing& out) {
  qshare_frame question(qshare_kind::list);
  const bool goes_on = list.program == programs_;
  out.first = goes_on ? from : 0;
  question.le(goes_on ? list.number : 0);
  question.le(out.first);
  question.text(path);
  const qshare_deadline until = steady_clock::now() + listing_time;
  qshare_head head;
  if (const int error = ask(question, qshare_kind::list, QSHARE_MOST_ANSWER, until, head); error != 0) return error;
  std::string payload(head.size, '\0');
  if (const int error = take(payload.data(), payload.size(), until); error != 0) return error;
  ByteReader reader(bytes_of(payload));
  std::uint8_t more = 0;
  out.entries.clear();
  if (!reader.le(list.number) || !reader.le(out.directory) || !reader.le(more)) return ENOTCONN;
  if (!take_entries(reader, out.entries)) return ENOTCONN;
  list.program = programs_;
  out.more = more != 0;
  return out.more && out.entries.empty() ? ENOTCONN : 0;
}

int qshare_session::information(qshare_subject& subject, qshare_info& about) {
  if (subject.path.size() > QSHARE_MOST_TEXT) return ENAMETOOLONG;
  return with_program(subject, [&] { return ask_information(subject.path, about); });
}

int qshare_session::open(qshare_subject& subject, qshare_info& about, qshare_number& file, std::string& first) {
  if (subject.path.size() > QSHARE_MOST_TEXT) return ENAMETOOLONG;
  const std::size_t wanted = first.size();
  return with_program(subject, [&] {
    first.resize(wanted);
    return ask_open(subject.path, about, file, first);
  });
}

int qshare_session::read(qshare_subject& subject, const qshare_info& about, qshare_number& file, std::uint64_t offset,
                         std::byte* buffer, std::uint32_t size, std::uint32_t& done) {
  return with_program(subject, [&] {
    if (file.program != programs_) {
      qshare_info again;
      std::string none;
      if (const int error = ask_open(subject.path, again, file, none); error != 0) return error;
      if (!same_file(about, again)) return ESTALE;
    }
    return ask_read(file, offset, buffer, size, done);
  });
}

int qshare_session::list(qshare_subject& subject, qshare_number& list, std::uint32_t from, listing& out) {
  if (subject.path.size() > QSHARE_MOST_TEXT) return ENAMETOOLONG;
  if (from == 0 && directories_ == QSHARE_MOST_DIRECTORIES) return EOVERFLOW;
  if (from == 0) ++directories_;
  return with_program(subject, [&] { return ask_list(subject.path, list, from, out); });
}

bool qshare_session::remember(std::size_t names) noexcept {
  if (names > QSHARE_MOST_REMEMBERED - remembered_) return false;
  remembered_ += names;
  return true;
}

void qshare_session::close(const qshare_number& number) noexcept try {
  if (!program_ || number.program != programs_) return;
  qshare_frame question(qshare_kind::close);
  question.le(number.number);
  // Nobody waits for an answer; if the program is gone, the next request notices.
  if (program_->send(question.finish(), steady_clock::now() + close_time) != qshare_transfer::done) program_.reset();
} catch (...) {
  program_.reset();
}
