// A compound file, read over our own file layer, so that a package on a share is read like one on a disk. Nothing but
// what is asked for is read. Format: Compound File Binary File Format ([MS-CFB]).
//
// An open one is sound: its sector table, directory, mini sector table and mini stream lie in the file and end, and its
// directory is a tree. A stream is looked at when it is opened.
#pragma once

#include <string_view>
#include <vector>

#include "msi/sector_chain.h"

// Directory entries, used or not; the installer's own packages have a few hundred.
inline constexpr std::uint32_t COMPOUND_MAX_ENTRIES = 65536;

// Follows the links of a table of sectors.
class sector_table {
 public:
  // `links` holds four bytes a sector: the next one's number.
  explicit sector_table(std::shared_ptr<msi_source> links) noexcept
      : links_(std::move(links)), window_(*links_, 4096) {}
  // Appends the chain that starts at `sector` to `chain`, until it covers `size` bytes or ends. What it has beyond is
  // not read: some writers keep sectors in reserve there. False when it leaves the file or meets a sector again. May
  // throw std::bad_alloc.
  [[nodiscard]] bool follow(std::uint32_t sector, std::uint64_t size, sector_chain& chain);

 private:
  std::shared_ptr<msi_source> links_;
  msi_window window_;
};

class compound_file {
 public:
  using class_id = std::array<std::byte, 16>;  // as stored

  // The compound file whose bytes are `file` (null is allowed); null when it is none or is damaged. May throw
  // std::bad_alloc, as all of these.
  [[nodiscard]] static std::unique_ptr<compound_file> open(const std::shared_ptr<msi_source>& file);
  // The class of the root storage.
  [[nodiscard]] const class_id& root_class() const noexcept { return class_; }
  // The stream `name` of the root storage; null when there is none or its chain does not hold the bytes that it should.
  // It may outlive this object; both are used by one thread at a time.
  [[nodiscard]] std::unique_ptr<msi_source> stream(std::u16string_view name);
  // Whether the root storage has a stream `name` that is not empty, be it damaged or not.
  [[nodiscard]] bool has_content(std::u16string_view name) const noexcept;
  // Whether the name of every stream of the root storage that begins with `first` has its zero where its length says,
  // and nowhere before.
  [[nodiscard]] bool has_terminated_names(qchar first) const noexcept;
  // Whether every stream of the root storage whose name begins with `first` can be opened.
  [[nodiscard]] bool has_whole_streams(qchar first);

 private:
  struct entry {
    std::array<qchar, 32> name{};
    std::uint8_t name_length = 0;  // in units; 0: no name
    std::uint8_t type = 0;
    std::array<std::uint32_t, 3> links{};  // left sibling, right sibling, child
    std::uint32_t start = 0;
    std::uint64_t size = 0;
    [[nodiscard]] std::u16string_view text() const noexcept { return {name.data(), name_length}; }
  };

  [[nodiscard]] bool read_header(const std::shared_ptr<msi_source>& file);
  [[nodiscard]] bool read_table(Bytes header);
  [[nodiscard]] bool read_directory(std::uint32_t first);
  [[nodiscard]] bool read_mini_stream(std::uint32_t first_table);
  [[nodiscard]] entry read_entry(Bytes bytes) const noexcept;
  [[nodiscard]] bool keep_root_streams(const std::vector<entry>& entries);
  [[nodiscard]] std::unique_ptr<sector_chain> new_chain() const;
  [[nodiscard]] std::unique_ptr<sector_chain> open_stream(const entry& e);

  std::shared_ptr<msi_source> file_;
  std::uint32_t sector_size_ = 0;
  std::unique_ptr<sector_table> table_;
  std::unique_ptr<sector_table> mini_table_;
  std::shared_ptr<msi_source> mini_stream_;
  class_id class_{};
  entry root_;
  std::vector<entry> streams_;  // of the root storage
};
