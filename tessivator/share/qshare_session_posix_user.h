// One share as seen by one thread: requests to the share program with time limits, repeated once when the program or
// its server was lost. One thread at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "share/qshare_child_posix_user.h"

// Texts in UTF-8; the password's memory is wiped before it is given back.
struct qshare_target {
  qshare_target() = default;
  qshare_target(const qshare_target&) = delete;
  qshare_target& operator=(const qshare_target&) = delete;
  ~qshare_target();

  std::string server;
  std::string share;
  // The process's own rights: a Kerberos ticket if there is one, else those of a guest. The rest is then empty.
  bool own_rights = true;
  std::string domain;
  std::string user;
  std::string password;
};

// The subject of a request, and whether it has cost a connection before.
struct qshare_subject {
  std::string path;
  bool was_lost = false;
};

// A file or list in the program that opened it; another program has to open it again.
struct qshare_number {
  std::uint64_t program = 0;
  std::uint32_t number = 0;
};

struct qshare_entry {
  std::string name;
  std::uint32_t attributes = 0;
  std::uint64_t number = 0;
};

class qshare_session {
 public:
  explicit qshare_session(std::unique_ptr<const qshare_target> target) noexcept : target_(std::move(target)) {}
  qshare_session(const qshare_session&) = delete;
  qshare_session& operator=(const qshare_session&) = delete;
  ~qshare_session() = default;

  // 0 or a system error value. May throw std::bad_alloc, as all below.
  [[nodiscard]] std::uint32_t connect();
  [[nodiscard]] const qshare_target& target() const noexcept { return *target_; }
  // A second loss for the same file or folder, or a server that cannot be reached again: no more requests.
  [[nodiscard]] bool dead() const noexcept { return dead_; }

  // All below answer 0 or an errno value; ENOTCONN when the session is dead.
  [[nodiscard]] int information(qshare_subject& subject, qshare_info& about);
  // `first` becomes the file's first bytes, at most as many as its size was. EISDIR for a directory.
  [[nodiscard]] int open(qshare_subject& subject, qshare_info& about, qshare_number& file, std::string& first);
  // `about` is what `open` told: a file that is found changed after a loss is not read on (ESTALE). `size` is at most
  // QSHARE_MOST_READ.
  [[nodiscard]] int read(qshare_subject& subject, const qshare_info& about, qshare_number& file, std::uint64_t offset,
                         std::byte* buffer, std::uint32_t size, std::uint32_t& done);
  // The entries of a directory in the server's order, as many as come at once. `from`: how many came before of this
  // list; after a loss the list begins again, maybe in another order, and `first` is 0. ENOMEM, ETIME, EOVERFLOW: it
  // takes too much of the program's memory, too long, or has too many names, or too many directories came before.
  struct listing {
    std::vector<qshare_entry> entries;
    std::uint32_t first = 0;      // how many of the list come before `entries`
    std::uint64_t directory = 0;  // its own number
    bool more = false;
  };
  [[nodiscard]] int list(qshare_subject& subject, qshare_number& list, std::uint32_t from, listing& out);
  void close(const qshare_number& number) noexcept;
  // Counts names that are kept in memory until they are forgotten; false when there would be too many.
  [[nodiscard]] bool remember(std::size_t names) noexcept;
  void forget(std::size_t names) noexcept { remembered_ -= names; }

 private:
  std::uint32_t connect_once();
  template <class Ask>
  int with_program(qshare_subject& subject, Ask ask);
  int ask(qshare_frame& question, qshare_kind kind, std::uint32_t most, qshare_deadline until, qshare_head& head);
  int take(void* buffer, std::size_t size, qshare_deadline until);
  int ask_information(const std::string& path, qshare_info& about);
  int ask_open(const std::string& path, qshare_info& about, qshare_number& file, std::string& first);
  int ask_read(const qshare_number& file, std::uint64_t offset, std::byte* buffer, std::uint32_t size,
               std::uint32_t& done);
  int ask_list(const std::string& path, qshare_number& list, std::uint32_t from, listing& out);

  std::unique_ptr<const qshare_target> target_;
  std::unique_ptr<qshare_child> program_;
  std::uint64_t programs_ = 0;     // started so far
  std::uint32_t directories_ = 0;  // listed so far
  std::size_t remembered_ = 0;     // names
  qshare_subject last_lost_;
  bool dead_ = false;
};
