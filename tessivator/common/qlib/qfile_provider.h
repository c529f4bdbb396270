// The seam under the file layer. A provider knows one kind of storage; qfile.cpp and qfile_itr.cpp hold everything
// that is the same for all of them (argument rules, parent directories, retries, the walk's stack and order).
//
// Paths come absolute or relative as the caller gave them. Status carries the translated code for the caller and the
// condition for our own decisions, because translation folds different system errors into one code.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"

// `held`: perhaps only because another program has the file open (Windows).
enum class qsys_condition : std::uint8_t { none, not_found, already_exists, end_of_directory, no_handles, held };

// The code that comes with end_of_directory is QERR_END.

struct [[nodiscard]] qsys_status {
  qerr_t code = QERR_OK;
  qsys_condition condition = qsys_condition::none;
  [[nodiscard]] bool ok() const noexcept { return code == QERR_OK && condition == qsys_condition::none; }
};

// One entry of a directory search.
struct qfile_entry {
  std::u16string name;
  bool is_directory = false;  // also for a link to a directory
  bool is_reparse = false;    // a link or junction of any kind
  bool is_symlink = false;    // a symbolic link
  bool is_link = false;       // leads to another place of the tree: a symbolic link or junction, no cloud placeholder
};

// What tells whether two listings are of the same directory.
struct qfile_identity {
  std::uint64_t volume = 0;
  std::uint64_t index_low = 0;
  std::uint64_t index_high = 0;
  bool operator==(const qfile_identity&) const noexcept = default;

  // Some storage has no numbers and answers 0 or all ones, in 64 or 128 bits, for every directory of a volume.
  [[nodiscard]] bool tells_apart() const noexcept {
    constexpr std::uint64_t ones = ~std::uint64_t{0};
    if (index_low == 0) return index_high != 0;
    return index_low != ones || (index_high != 0 && index_high != ones);
  }
};

// Where a seek by `offset` from `base` leads; false when that lies before the start or past the largest offset.
[[nodiscard]] bool qfile_seek_target(std::uint64_t base, std::int64_t offset, std::uint64_t& target) noexcept;

// An open file; the destructor closes it.
class qfile_object {
 public:
  virtual ~qfile_object() = default;
  // The first failure of a read, for who asks when all that wanted bytes are done.
  [[nodiscard]] qerr_t failure() const noexcept { return failure_; }
  void note(qerr_t code) noexcept {
    if (failure_ == QERR_OK) failure_ = code;
  }
  virtual qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept = 0;
  virtual qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept = 0;
  virtual qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept = 0;
  virtual qsys_status size(std::uint64_t& bytes) noexcept = 0;
  virtual qsys_status truncate(std::uint64_t bytes) noexcept = 0;
  virtual qsys_status info(qfile_info& out) noexcept = 0;
  virtual qsys_status stamp(qfile_stamp& out) noexcept {
    (void)out;
    return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  }
  // Reads up to `length` bytes from the start into `destination` without moving the position; `done` tells how many.
  virtual qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept = 0;
  // The bytes from the position on that the open file keeps in memory; none is always an answer.
  [[nodiscard]] virtual Bytes held() noexcept { return {}; }
  // Hands written bytes to the storage device, as far as this kind of storage can.
  virtual qsys_status flush() noexcept { return {}; }
  // Gives a file of create_nameless its name; already_exists when anything stands there.
  virtual qsys_status give_name(const qchar* path) {
    (void)path;
    return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  }
  // Gives this new file, which is to replace the file at `path`, what rights of it the storage can. A device or pipe
  // there is nothing to be replaced: the code of a special file.
  [[nodiscard]] virtual qsys_status keep_mode(const qchar* path) {
    (void)path;
    return {};
  }

 private:
  qerr_t failure_ = QERR_OK;
};

// What open files of every storage have in common: the position, kept here so that seeking costs no call, and the first
// block of a file that is open for reading only. The first read of that block fetches all of it, so that headers,
// resources, certificate table and digests of a small file come out of one read.
class qfile_positioned : public qfile_object {
 public:
  // What a file keeps of its start, in bytes.
  static constexpr std::size_t largest_block = std::size_t{256} << 10U;

  qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override;
  // QERR_INVALID for a position before the start or past the largest offset.
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override;
  qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override;
  [[nodiscard]] Bytes held() noexcept override;

 protected:
  explicit qfile_positioned(bool keeps_block) noexcept : block_wanted_(keeps_block) {}

  // One read call at `offset`; fewer bytes than asked for is success, 0 the end of the file.
  virtual qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept = 0;
  // The first `wanted` bytes for the block, or as many as there are.
  virtual qsys_status read_start(std::byte* destination, std::size_t wanted, std::size_t& done) noexcept;
  // The size as far as it is known without another call: the block is no larger.
  virtual std::uint64_t expected_size() noexcept;

  std::uint64_t position_ = 0;

 private:
  qsys_status keep_block() noexcept;
  qsys_status read_rest(std::byte* destination, std::size_t length, std::size_t& done) noexcept;

  QmemPtr<std::byte> block_;
  std::size_t block_size_ = 0;
  qsys_status block_status_;
  bool block_wanted_;  // and not yet tried
};

// A running search of one directory; the destructor ends it.
class qfile_search {
 public:
  virtual ~qfile_search() = default;
  // The next entry, "." and ".." included or not; end_of_directory when there is none. May throw std::bad_alloc.
  virtual qsys_status next(qfile_entry& entry) = 0;
  // What tells the directory from others; false where the storage has no number for it.
  virtual bool identity(qfile_identity& out) const noexcept {
    (void)out;
    return false;
  }
  // Called when many searches are open: keeps what is left in memory and gives scarce system handles back. Searching
  // goes on as before. May throw std::bad_alloc.
  virtual void park() {}
  // Called on a parked search when `below`, the search of a directory that it yielded, is about to end: a handle is to
  // be had from there. Never needed, but cheaper than finding the directory again by its path.
  virtual void resume(const qfile_search& below) noexcept { (void)below; }
  // Called before a file of this search, which searches `directory`, goes to the caller: opening it may start here.
  // May throw std::bad_alloc.
  virtual void offer(std::u16string_view directory) { (void)directory; }
};

// A directory whose entries are wanted.
struct qfile_listing {
  std::u16string_view path;       // null-terminated; may end in a separator; its characters are taken literally
  qfile_search* above = nullptr;  // the same provider's search that yielded the directory, if it is still there
  bool is_link = true;            // it may be a link; otherwise a link that stands there by now is not followed
  bool leave_room = false;        // no_handles also when only a few handles would be left
};

// Operations may throw std::bad_alloc and nothing else.
class qfile_provider {
 public:
  virtual ~qfile_provider() = default;
  // `flags` are already checked.
  virtual qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) = 0;
  // Creates a file that does not exist yet and opens it for writing, shared with nobody; a link that stands at `path`
  // is never followed.
  virtual qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) = 0;
  // Creates a file without a name in the folder of `path` and opens it for writing: it is gone when it is closed before
  // it has got a name. QERR_NOT_IMPLEMENTED where the storage has no such files.
  virtual qsys_status create_nameless(const qchar* path, std::unique_ptr<qfile_object>& out) {
    (void)path;
    (void)out;
    return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  }
  // Searches for `pattern`: a path whose last component may hold * and ?. `out` yields the matches one by one. Sockets,
  // FIFOs and devices are never among them.
  virtual qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) = 0;
  // Searches for all entries of a directory.
  virtual qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) = 0;
  virtual qsys_status exists(const qchar* path) = 0;
  virtual qsys_status info(const qchar* path, qfile_info& out) = 0;
  virtual qsys_status rename(const qchar* source, const qchar* target) = 0;
  virtual qsys_status remove(const qchar* path) = 0;
  virtual qsys_status make_directory(const qchar* path) = 0;
  virtual qsys_status remove_directory(const qchar* path) = 0;
  virtual qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) = 0;
  virtual qsys_status compress(const qchar* path) = 0;
  // Waits before the next try at a file that is held.
  virtual void pause(std::uint32_t milliseconds) noexcept;
  // The absolute form, lexically: it need not exist.
  virtual qsys_status full_path(const qchar* path, std::u16string& out) = 0;
};

// The provider that serves `path`: the override if a test set one, else the platform's choice.
[[nodiscard]] qfile_provider& qfile_provider_for(const qchar* path) noexcept;

// Platform part: local files, and the choice between local files and shares.
[[nodiscard]] qfile_provider& qfile_local_provider() noexcept;
[[nodiscard]] qfile_provider& qfile_platform_provider_for(const qchar* path) noexcept;

// Puts `provider` before all others (null ends that). For tests that inject faults; not for concurrent use.
void qfile_set_provider(qfile_provider* provider) noexcept;
