#include "msi/compound_check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/qlib/qbytes.h"

// Compound File Binary File Format ([MS-CFB]), header:
//   0 signature   28 byte order   30 sector shift   32 mini sector shift   44 number of FAT sectors
//   48 first directory sector     56 mini stream cutoff    60 first mini FAT sector    64 number of mini FAT sectors
//   68 first DIFAT sector   72 number of DIFAT sectors   76 the first 109 DIFAT entries
// Directory entry (128 bytes): 66 type   68 left sibling   72 right sibling   76 child
namespace {

constexpr std::array<std::byte, 8> signature{std::byte{0xD0}, std::byte{0xCF}, std::byte{0x11}, std::byte{0xE0},
                                             std::byte{0xA1}, std::byte{0xB1}, std::byte{0x1A}, std::byte{0xE1}};
constexpr std::size_t header_size = 512;
constexpr std::uint32_t header_difat_entries = 109;
constexpr std::size_t entry_size = 128;
constexpr std::uint32_t end_of_chain = 0xFFFFFFFE;
constexpr std::uint32_t no_entry = 0xFFFFFFFF;
constexpr std::uint8_t type_storage = 1;
constexpr std::uint8_t type_stream = 2;
constexpr std::uint8_t type_root = 5;

std::uint32_t word(Bytes bytes, std::size_t offset) noexcept {
  return qbytes_le<std::uint32_t>(bytes, offset).value_or(no_entry);
}

// One directory entry's place in the tree.
struct entry {
  std::array<std::uint32_t, 3> links{no_entry, no_entry, no_entry};  // left, right, child
  std::uint8_t type = 0;
};

class checker {
 public:
  explicit checker(msi_source& file) noexcept : file_(file) {}
  [[nodiscard]] bool run();
  [[nodiscard]] std::size_t stack() const noexcept;

 private:
  [[nodiscard]] bool read_header();
  [[nodiscard]] bool read_difat();
  [[nodiscard]] bool read_directory();
  [[nodiscard]] bool is_tree();
  [[nodiscard]] bool mini_table_ends();
  [[nodiscard]] bool read_sector(std::uint32_t sector, std::size_t length);
  [[nodiscard]] bool next(std::uint32_t& sector);
  void add_entries();

  msi_source& file_;
  std::array<std::byte, 4096> buffer_{};  // the sector that read_sector read
  std::array<std::byte, 4096> table_{};   // the FAT sector that next read
  std::uint32_t table_index_ = no_entry;
  std::uint32_t sector_size_ = 0;
  std::uint32_t sector_count_ = 0;
  std::uint32_t fat_sectors_ = 0;
  std::uint32_t first_directory_ = 0;
  std::uint32_t first_mini_ = 0;
  std::uint32_t mini_sectors_ = 0;
  std::uint32_t first_difat_ = 0;
  std::uint32_t difat_sectors_ = 0;
  std::uint32_t depth_ = 0;           // of the directory tree
  std::vector<std::uint32_t> difat_;  // the place of each FAT sector
  std::vector<entry> entries_;
};

bool checker::run() { return read_header() && read_difat() && read_directory() && is_tree() && mini_table_ends(); }

// A bit for each entry of the larger table, or half a kibibyte for each step down the tree; and what else the calls
// need.
std::size_t checker::stack() const noexcept {
  constexpr std::size_t step = 512;
  constexpr std::size_t calls = 65536;
  const std::size_t table = std::size_t{std::max(fat_sectors_, mini_sectors_)} * sector_size_ / 32;
  return std::max(table, depth_ * step) + calls;
}

// The last sector of a file may be cut; what is missing reads as zero.
bool checker::read_sector(std::uint32_t sector, std::size_t length) {
  if (sector >= sector_count_) return false;
  const std::uint64_t offset = (std::uint64_t{sector} + 1) * sector_size_;
  buffer_.fill(std::byte{0});
  const std::uint64_t available = file_.size() - offset;
  if (length > available) length = static_cast<std::size_t>(available);
  return file_.read(offset, std::span(buffer_).first(length));
}

bool checker::read_header() {
  std::array<std::byte, header_size> header{};
  if (file_.size() > COMPOUND_MAX_SIZE || !file_.read(0, header)) return false;
  const Bytes bytes(header);
  if (std::memcmp(header.data(), signature.data(), signature.size()) != 0) return false;
  const std::uint32_t shift = word(bytes, 30) & 0xFFFF;
  const std::uint32_t mini_shift = word(bytes, 32) & 0xFFFF;
  if ((shift != 9 && shift != 12) || mini_shift != 6 || word(bytes, 56) != 4096) return false;
  sector_size_ = 1U << shift;
  if (file_.size() <= sector_size_) return false;
  sector_count_ = static_cast<std::uint32_t>((file_.size() - 1) / sector_size_);
  fat_sectors_ = word(bytes, 44);
  first_directory_ = word(bytes, 48);
  first_mini_ = word(bytes, 60);
  mini_sectors_ = word(bytes, 64);
  first_difat_ = word(bytes, 68);
  difat_sectors_ = word(bytes, 72);
  const std::uint32_t per_sector = sector_size_ / 4;
  // A table that covers twice the file is odd but harmless; a larger one only costs memory.
  if (fat_sectors_ == 0 || fat_sectors_ > 2 * (sector_count_ / per_sector) + 16) return false;
  if (std::uint64_t{fat_sectors_} * per_sector > COMPOUND_MAX_TABLE_ENTRIES) return false;
  const std::uint32_t in_header = fat_sectors_ < header_difat_entries ? fat_sectors_ : header_difat_entries;
  difat_.reserve(fat_sectors_);
  for (std::uint32_t i = 0; i < in_header; ++i) difat_.push_back(word(bytes, 76 + std::size_t{4} * i));
  return mini_sectors_ <= COMPOUND_MAX_MINI_TABLE / sector_size_;
}

// Each DIFAT sector holds one entry less than would fit; the last word is the next DIFAT sector. The walk takes as many
// sectors as the FAT needs and ends there, so that a cycle cannot hold it.
bool checker::read_difat() {
  const std::uint32_t per_sector = sector_size_ / 4 - 1;
  const std::uint32_t needed = (fat_sectors_ - static_cast<std::uint32_t>(difat_.size()) + per_sector - 1) / per_sector;
  if (difat_sectors_ != needed) return false;
  std::uint32_t sector = first_difat_;
  for (std::uint32_t i = 0; i < needed; ++i) {
    if (!read_sector(sector, sector_size_)) return false;
    const Bytes bytes(buffer_);
    for (std::uint32_t k = 0; k < per_sector && difat_.size() < fat_sectors_; ++k) {
      difat_.push_back(word(bytes, std::size_t{4} * k));
    }
    sector = word(bytes, std::size_t{4} * per_sector);
  }
  for (const std::uint32_t place : difat_) {
    if (place >= sector_count_ && place != no_entry) return false;
  }
  return true;
}

// Follows the sector table one step.
bool checker::next(std::uint32_t& sector) {
  const std::uint32_t per_sector = sector_size_ / 4;
  const std::uint32_t index = sector / per_sector;
  if (index >= difat_.size()) return false;
  if (index != table_index_) {
    if (!read_sector(difat_[index], sector_size_)) return false;
    table_ = buffer_;
    table_index_ = index;
  }
  sector = word(table_, std::size_t{4} * (sector % per_sector));
  return true;
}

void checker::add_entries() {
  for (std::size_t at = 0; at + entry_size <= sector_size_; at += entry_size) {
    const Bytes bytes = Bytes(buffer_).subspan(at, entry_size);
    entry e;
    e.type = std::to_integer<std::uint8_t>(bytes[66]);
    for (std::size_t i = 0; i < e.links.size(); ++i) e.links[i] = word(bytes, 68 + 4 * i);
    entries_.push_back(e);
  }
}

// A chain with a cycle runs into the limit on entries.
bool checker::read_directory() {
  std::uint32_t sector = first_directory_;
  while (sector != end_of_chain) {
    if (entries_.size() >= COMPOUND_MAX_ENTRIES || !read_sector(sector, sector_size_)) return false;
    add_entries();
    if (!next(sector)) return false;
  }
  return !entries_.empty();
}

// Visits every entry that the root reaches, each at most once; a second visit is a cycle or a shared child.
bool checker::is_tree() {
  struct step {
    std::uint32_t index;
    std::uint32_t depth;
  };
  std::vector<bool> seen(entries_.size(), false);
  std::vector<step> open{{0, 0}};
  while (!open.empty()) {
    const step at = open.back();
    open.pop_back();
    if (at.index >= entries_.size() || at.depth > COMPOUND_MAX_DEPTH || seen[at.index]) return false;
    seen[at.index] = true;
    depth_ = std::max(depth_, at.depth);
    const entry& e = entries_[at.index];
    if (at.index == 0 ? e.type != type_root : (e.type != type_storage && e.type != type_stream)) return false;
    for (std::size_t i = 0; i < e.links.size(); ++i) {
      if (e.type == type_stream && i == 2) continue;  // a stream's child link means nothing
      if (e.links[i] == no_entry) continue;
      if (at.index == 0 && i != 2) return false;  // the root has no siblings
      open.push_back({e.links[i], at.depth + 1});
    }
  }
  return true;
}

bool checker::mini_table_ends() {
  std::uint32_t sector = first_mini_;
  for (std::uint64_t length = 0; sector != end_of_chain && sector != no_entry; length += sector_size_) {
    if (length >= COMPOUND_MAX_MINI_TABLE || sector >= sector_count_ || !next(sector)) return false;
  }
  return true;
}

}  // namespace

bool compound_has_signature(msi_source& file) noexcept {
  std::array<std::byte, signature.size()> first{};
  return file.read(0, first) && first == signature;
}

bool compound_is_sound(msi_source& file, std::size_t& stack) {
  checker check(file);
  if (!check.run()) return false;
  stack = check.stack();
  return true;
}
