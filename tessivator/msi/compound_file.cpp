#include "msi/compound_file.h"

#include <algorithm>
#include <utility>

#include "common/qlib/qbytes.h"

// Header (512 bytes):
//   0 signature   30 sector shift   32 mini sector shift   44 number of FAT sectors   48 first directory sector
//   56 mini stream cutoff   60 first mini FAT sector   68 first DIFAT sector   72 number of DIFAT sectors
//   76 the first 109 DIFAT entries
// Directory entry (128 bytes):
//   0 name   64 bytes of the name with its terminator   66 type   68 left sibling   72 right sibling   76 child
//   80 class   116 first sector   120 size
namespace {

constexpr std::uint64_t signature = 0xE11AB1A1E011CFD0;
constexpr std::size_t header_size = 512;
constexpr std::uint32_t header_difat_entries = 109;
constexpr std::uint32_t entry_size = 128;
constexpr std::uint32_t mini_sector_size = 64;
constexpr std::uint32_t mini_cutoff = 4096;
constexpr std::uint32_t end_of_chain = 0xFFFFFFFE;
constexpr std::uint32_t none = 0xFFFFFFFF;
constexpr std::uint8_t type_storage = 1;
constexpr std::uint8_t type_stream = 2;
constexpr std::uint8_t type_root = 5;
// What a version 3 file, whose sectors have 512 bytes, may hold (2 GiB); it bounds what one package costs.
constexpr std::uint32_t most_sectors = 1U << 22;

std::uint32_t word(Bytes bytes, std::size_t offset) noexcept {
  return qbytes_le<std::uint32_t>(bytes, offset).value_or(none);
}

// Appends the sectors whose numbers are `places` to `table`, at most `left`, from which they are taken. A free place
// among those that were claimed ends the table.
bool append_places(Bytes places, std::uint32_t& left, sector_chain& table) {
  for (; left > 0 && !places.empty(); --left, places = places.subspan(4)) {
    const std::uint32_t sector = word(places, 0);
    if (sector == none)
      left = 1;
    else if (sector < table.sectors_below())
      table.append(sector);
    else
      return false;
  }
  return true;
}

}  // namespace

bool sector_table::follow(std::uint32_t sector, std::uint64_t size, sector_chain& chain) {
  const std::uint32_t present = chain.sectors_below();
  // A chain without repetition has no more sectors than there are.
  for (std::uint32_t left = present; sector != end_of_chain && chain.size() < size; --left) {
    if (left == 0 || sector >= present) return false;
    chain.append(sector);
    if (chain.size() >= size) break;
    const auto next = qbytes_le<std::uint32_t>(window_.at(std::uint64_t{4} * sector, 4), 0);
    if (!next) return false;
    sector = *next;
  }
  return !chain.has_repeats();
}

std::unique_ptr<compound_file> compound_file::open(const std::shared_ptr<msi_source>& file) {
  auto compound = std::make_unique<compound_file>();
  if (!file || !compound->read_header(file)) return nullptr;
  return compound;
}

// Sector 0 lies behind the header, which takes a whole sector.
std::unique_ptr<sector_chain> compound_file::new_chain() const {
  return std::make_unique<sector_chain>(file_, sector_size_, sector_size_);
}

bool compound_file::read_header(const std::shared_ptr<msi_source>& file) {
  std::array<std::byte, header_size> bytes{};
  if (!file->read(0, bytes)) return false;
  const Bytes header(bytes);
  if (qbytes_le<std::uint64_t>(header, 0) != signature) return false;
  const std::uint32_t shift = word(header, 30) & 0xFFFF;
  const std::uint32_t mini_shift = word(header, 32) & 0xFFFF;
  if ((shift != 9 && shift != 12) || mini_shift != 6 || word(header, 56) != mini_cutoff) return false;
  file_ = file;
  sector_size_ = 1U << shift;
  return read_table(header) && read_directory(word(header, 48)) && read_mini_stream(word(header, 60));
}

// The places of the sector table's own sectors stand in the header, and where that is too small in DIFAT sectors, whose
// last word is the next one's number. Each turn takes at least one place, so that a cycle cannot hold us.
bool compound_file::read_table(Bytes header) {
  auto table = new_chain();
  const std::uint32_t present = table->sectors_below();
  const std::uint32_t per_sector = sector_size_ / 4;
  std::uint32_t left = word(header, 44);
  // A table that covers twice the file is odd but harmless; a larger one only costs memory.
  if (present > most_sectors || left == 0 || left > 2 * (present / per_sector) + 16) return false;
  const std::uint32_t beyond = left - std::min(left, header_difat_entries);
  if (word(header, 72) != (beyond + per_sector - 2) / (per_sector - 1)) return false;
  if (!append_places(header.subspan(76), left, *table)) return false;
  std::array<std::byte, 4096> buffer{};
  const auto sector = std::span(buffer).first(sector_size_);
  for (std::uint32_t next = word(header, 68); left > 0; next = word(sector, sector_size_ - 4)) {
    auto list = new_chain();
    if (next >= present) return false;
    list->append(next);
    if (!list->read(0, sector) || !append_places(sector.first(sector_size_ - 4), left, *table)) return false;
  }
  table_ = std::make_unique<sector_table>(std::move(table));
  return true;
}

compound_file::entry compound_file::read_entry(Bytes bytes) const noexcept {
  entry e;
  const std::uint32_t length = word(bytes, 64) & 0xFFFF;
  if (length >= 2 && length <= 2 * e.name.size() && length % 2 == 0)
    e.name_length = static_cast<std::uint8_t>(length / 2 - 1);
  for (std::size_t i = 0; i < e.name.size(); ++i) e.name[i] = qbytes_le<std::uint16_t>(bytes, 2 * i).value_or(0);
  e.type = qbytes_le<std::uint8_t>(bytes, 66).value_or(0);
  for (std::size_t i = 0; i < e.links.size(); ++i) e.links[i] = word(bytes, 68 + 4 * i);
  e.start = word(bytes, 116);
  e.size = word(bytes, 120);
  // Version 3 has sizes of 32 bits, and what its writers left in the field's other half means nothing.
  if (sector_size_ == 4096) e.size |= std::uint64_t{word(bytes, 124)} << 32;
  return e;
}

bool compound_file::read_directory(std::uint32_t first) {
  auto chain = new_chain();
  constexpr std::uint64_t most = std::uint64_t{COMPOUND_MAX_ENTRIES} * entry_size;
  if (!table_->follow(first, most + 1, *chain) || chain->size() > most) return false;
  std::vector<entry> entries;
  entries.reserve(static_cast<std::size_t>(chain->size() / entry_size));
  msi_window window(*chain);
  for (std::uint64_t at = 0; at < chain->size(); at += entry_size) {
    const Bytes bytes = window.at(at, entry_size);
    if (bytes.empty()) return false;
    if (at == 0) std::ranges::copy(bytes.subspan(80, class_.size()), class_.begin());
    entries.push_back(read_entry(bytes));
  }
  if (entries.empty() || entries[0].type != type_root) return false;
  root_ = entries[0];
  return keep_root_streams(entries);
}

// Visits every entry that the root reaches, each once: a second way to one is a cycle or a shared child. The siblings
// of a storage's child are that storage's, so those of the root's child are the root's; siblings of the root itself
// mean nothing.
bool compound_file::keep_root_streams(const std::vector<entry>& entries) {
  struct step {
    std::uint32_t index;
    bool in_root;
  };
  std::vector<bool> seen(entries.size(), false);
  seen[0] = true;
  std::vector<step> open;
  const auto enter = [&](std::uint32_t index, bool in_root) {
    if (index == none) return true;
    if (index >= entries.size() || seen[index]) return false;
    seen[index] = true;
    open.push_back({index, in_root});
    return true;
  };
  if (!enter(root_.links[2], true)) return false;
  while (!open.empty()) {
    const step at = open.back();
    open.pop_back();
    const entry& e = entries[at.index];
    if (e.type != type_storage && e.type != type_stream) return false;
    if (!enter(e.links[0], at.in_root) || !enter(e.links[1], at.in_root)) return false;
    if (e.type == type_storage && !enter(e.links[2], false)) return false;  // a stream's child means nothing
    if (e.type == type_stream && at.in_root) streams_.push_back(e);
  }
  return true;
}

bool compound_file::read_mini_stream(std::uint32_t first_table) {
  auto stream = new_chain();
  auto table = new_chain();
  if (!table_->follow(root_.start, root_.size, *stream) || !stream->cut(root_.size)) return false;
  const std::uint64_t links = root_.size / mini_sector_size * 4 + 4;
  if (first_table != none && !table_->follow(first_table, links, *table)) return false;
  mini_stream_ = std::move(stream);
  mini_table_ = std::make_unique<sector_table>(std::move(table));
  return true;
}

std::unique_ptr<sector_chain> compound_file::open_stream(const entry& e) {
  const bool mini = e.size < mini_cutoff;
  auto chain = mini ? std::make_unique<sector_chain>(mini_stream_, 0, mini_sector_size) : new_chain();
  sector_table& table = mini ? *mini_table_ : *table_;
  if (!table.follow(e.start, e.size, *chain) || !chain->cut(e.size)) return nullptr;
  return chain;
}

std::unique_ptr<msi_source> compound_file::stream(std::u16string_view name) {
  const auto at = std::ranges::find(streams_, name, &entry::text);
  if (at == streams_.end()) return nullptr;
  return open_stream(*at);
}

bool compound_file::has_content(std::u16string_view name) const noexcept {
  const auto at = std::ranges::find(streams_, name, &entry::text);
  return at != streams_.end() && at->size > 0;
}

bool compound_file::has_terminated_names(qchar first) const noexcept {
  return std::ranges::all_of(streams_, [first](const entry& e) {
    const auto zero = std::ranges::find(e.name, u'\0');
    return e.name[0] != first || (zero != e.name.end() && zero - e.name.begin() == e.name_length);
  });
}

// No two streams share a sector: taken together they are no longer than the file, and the work is bounded by that.
bool compound_file::has_whole_streams(qchar first) {
  std::uint64_t left = std::uint64_t{new_chain()->sectors_below()} * sector_size_ + mini_stream_->size();
  return std::ranges::all_of(streams_, [&](const entry& e) {
    if (!e.text().starts_with(first)) return true;
    const auto chain = open_stream(e);
    if (!chain || chain->allocated() > left) return false;
    left -= chain->allocated();
    return true;
  });
}
