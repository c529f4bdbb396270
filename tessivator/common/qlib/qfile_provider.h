// The seam below the file layer. A provider knows one kind of storage; qfile.cpp and qfile_itr.cpp do what is the same
// for all of them (argument checks, parent directories, retries, the order of the walk).
//
// Paths are absolute or relative, as the caller gave them. A status has the translated code for the caller and a
// condition for our own decisions, because translation maps different system errors to one code.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"

// `held`: perhaps only because another program has the file open (Windows).
enum class qsys_condition : std::uint8_t { none, not_found, already_exists, end_of_directory, no_handles, held };

// end_of_directory comes with the code QERR_END.

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
  bool is_link = false;       // a symbolic link or junction, not a cloud placeholder
};

// Tells whether two listings are of the same directory.
struct qfile_identity {
  std::uint64_t volume = 0;
  std::uint64_t index_low = 0;
  std::uint64_t index_high = 0;
  bool operator==(const qfile_identity&) const noexcept = default;

  // Some storage has no numbers: it reports 0 or all ones (64 or 128 bits) for every directory of a volume.
  [[nodiscard]] bool tells_apart() const noexcept {
    constexpr std::uint64_t ones = ~std::uint64_t{0};
    if (index_low == 0) return index_high != 0;
    return index_low != ones || (index_high != 0 && index_high != ones);
  }
};

// The position after a seek by `offset` from `base`; false when it is before the start or too large.
[[nodiscard]] bool qfile_seek_target(std::uint64_t base, std::int64_t offset, std::uint64_t& target) noexcept;

// An open file; the destructor closes it.
class qfile_object {
 public:
  virtual ~qfile_object() = default;
  // The first failed read, for callers that check once at the end.
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
  // The bytes from the position that the open file keeps in memory; may always be empty.
  [[nodiscard]] virtual Bytes held() noexcept { return {}; }
  // Flushes written bytes to the device, as far as this storage can.
  virtual qsys_status flush() noexcept { return {}; }
  // Gives a file of create_nameless its name; already_exists if the name is taken.
  virtual qsys_status give_name(const qchar* path) {
    (void)path;
    return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  }
  // Gives this new file the access rights of the file at `path` that it will replace, as far as the storage can.
  // Refuses to replace a device or pipe, with the code of a special file.
  [[nodiscard]] virtual qsys_status keep_mode(const qchar* path) {
    (void)path;
    return {};
  }

 private:
  qerr_t failure_ = QERR_OK;
};

// What open files of all storage share: the position, kept here so that seeking costs no call, and the first block of a
// file opened for reading only. The first read of that block fetches all of it: headers, resources, certificate table
// and digests of a small file come from one read.
class qfile_positioned : public qfile_object {
 public:
  // The size of the first block in bytes.
  static constexpr std::size_t largest_block = std::size_t{256} << 10U;

  qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override;
  // QERR_INVALID for a position before the start or beyond the largest offset.
  qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override;
  qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override;
  [[nodiscard]] Bytes held() noexcept override;

 protected:
  explicit qfile_positioned(bool keeps_block) noexcept : block_wanted_(keeps_block) {}

  // One read call at `offset`. Success may return fewer bytes; 0 bytes mean the end of the file.
  virtual qsys_status read_at(std::uint64_t offset, void* buffer, std::uint32_t size, std::uint32_t& done) noexcept = 0;
  // Reads the first `wanted` bytes for the block, or as many as exist.
  virtual qsys_status read_start(std::byte* destination, std::size_t wanted, std::size_t& done) noexcept;
  // The size if it is known without another call; limits the block.
  virtual std::uint64_t expected_size() noexcept;

  std::uint64_t position_ = 0;

 private:
  qsys_status keep_block() noexcept;
  qsys_status read_rest(std::byte* destination, std::size_t length, std::size_t& done) noexcept;

  QmemPtr<std::byte> block_;
  std::size_t block_size_ = 0;
  qsys_status block_status_;
  bool block_wanted_;  // not tried yet
};

// A running search of one directory; the destructor ends it.
class qfile_search {
 public:
  virtual ~qfile_search() = default;
  // The next entry, "." and ".." included or not; end_of_directory when there is none. May throw std::bad_alloc.
  virtual qsys_status next(qfile_entry& entry) = 0;
  // Identifies the directory; false if the storage has no number for it.
  virtual bool identity(qfile_identity& out) const noexcept {
    (void)out;
    return false;
  }
  // Called when many searches are open: moves the remaining entries to memory and frees the system handle. The search
  // continues as before. May throw std::bad_alloc.
  virtual void park() {}
  // Called on a parked search when `below`, the search of one of its subdirectories, is about to end: it can get its
  // handle back from there. Not required, but cheaper than opening the directory by its path.
  virtual void resume(const qfile_search& below) noexcept { (void)below; }
  // Called before a file of this search is returned; `directory` is the path of the search. Opening the file may start
  // here. May throw std::bad_alloc.
  virtual void offer(std::u16string_view directory) { (void)directory; }
};

// A directory to list.
struct qfile_listing {
  std::u16string_view path;       // null-terminated; may end in a separator; its characters are taken literally
  qfile_search* above = nullptr;  // the search that returned the directory, if it still exists
  bool is_link = true;            // may be a link; if false, a link found there is not followed
  bool leave_room = false;        // return no_handles also when few handles are left
};

// Operations may throw std::bad_alloc and nothing else.
class qfile_provider {
 public:
  virtual ~qfile_provider() = default;
  // `flags` are already checked.
  virtual qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) = 0;
  // Creates a new file for exclusive writing. Fails if it exists; a link at `path` is not followed.
  virtual qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) = 0;
  // Creates a nameless file in the folder of `path` for writing. It disappears when closed without a name.
  // QERR_NOT_IMPLEMENTED if the storage has no such files.
  virtual qsys_status create_nameless(const qchar* path, std::unique_ptr<qfile_object>& out) {
    (void)path;
    (void)out;
    return {QERR_NOT_IMPLEMENTED, qsys_condition::none};
  }
  // Searches for `pattern`: a path whose last component may contain * and ?. `out` returns the matches one by one.
  // Sockets, FIFOs and devices are never returned.
  virtual qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) = 0;
  // Lists all entries of a directory.
  virtual qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) = 0;
  virtual qsys_status exists(const qchar* path) = 0;
  virtual qsys_status info(const qchar* path, qfile_info& out) = 0;
  virtual qsys_status rename(const qchar* source, const qchar* target) = 0;
  virtual qsys_status remove(const qchar* path) = 0;
  virtual qsys_status make_directory(const qchar* path) = 0;
  virtual qsys_status remove_directory(const qchar* path) = 0;
  virtual qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) = 0;
  virtual qsys_status compress(const qchar* path) = 0;
  // Waits before the next attempt at a file that another program holds.
  virtual void pause(std::uint32_t milliseconds) noexcept;
  // The absolute form of a path, by text alone: it need not exist.
  virtual qsys_status full_path(const qchar* path, std::u16string& out) = 0;
};

// The provider for `path`: that of a test if one is set, else the choice of the platform.
[[nodiscard]] qfile_provider& qfile_provider_for(const qchar* path) noexcept;

// Platform part: local files, and the choice between local files and shares.
[[nodiscard]] qfile_provider& qfile_local_provider() noexcept;
[[nodiscard]] qfile_provider& qfile_platform_provider_for(const qchar* path) noexcept;

// Installs `provider` before all others (null ends that). For fault injection in tests; not for concurrent use.
void qfile_set_provider(qfile_provider* provider) noexcept;
