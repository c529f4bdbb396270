#include "msi/sector_chain.h"

#include <algorithm>
#include <utility>

namespace {

// What lies behind the end of `source` reads as zero.
bool read_or_zero(msi_source& source, std::uint64_t offset, std::span<std::byte> out) noexcept {
  const std::uint64_t rest = offset < source.size() ? source.size() - offset : 0;
  const auto available = static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), rest));
  std::ranges::fill(out.subspan(available), std::byte{0});
  return available == 0 || source.read(offset, out.first(available));
}

}  // namespace

sector_chain::sector_chain(std::shared_ptr<msi_source> below, std::uint64_t start, std::uint32_t sector_size) noexcept
    : below_(std::move(below)), start_(start), sector_size_(sector_size) {}

std::uint32_t sector_chain::sectors_below() const noexcept {
  constexpr std::uint64_t largest = 0xFFFFFFFA;  // the format's last ordinary sector number
  const std::uint64_t bytes = below_->size() > start_ ? below_->size() - start_ : 0;
  const std::uint64_t whole = bytes / sector_size_;
  return static_cast<std::uint32_t>(std::min(largest, whole + (bytes % sector_size_ != 0 ? 1 : 0)));
}

void sector_chain::append(std::uint32_t sector) {
  if (runs_.empty() || sector != runs_.back().sector + (count_ - runs_.back().index)) {
    runs_.push_back({count_, sector});
  }
  ++count_;
  size_ += sector_size_;
}

bool sector_chain::cut(std::uint64_t size) noexcept {
  if (size > size_) return false;
  size_ = size;
  return true;
}

bool sector_chain::has_repeats() const {
  if (runs_.size() < 2) return false;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> places;  // first sector, sector behind the last
  places.reserve(runs_.size());
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    const std::uint32_t end = i + 1 < runs_.size() ? runs_[i + 1].index : count_;
    places.emplace_back(runs_[i].sector, runs_[i].sector + (end - runs_[i].index));
  }
  std::ranges::sort(places);
  const auto overlap = [](const auto& a, const auto& b) noexcept { return b.first < a.second; };
  return std::ranges::adjacent_find(places, overlap) != places.end();
}

bool sector_chain::read(std::uint64_t offset, std::span<std::byte> out) noexcept {
  if (offset > size_ || out.size() > size_ - offset) return false;
  const auto index = static_cast<std::uint32_t>(offset / sector_size_);
  const auto behind = [](std::uint32_t wanted, const run& r) noexcept { return wanted < r.index; };
  auto at = std::upper_bound(runs_.begin(), runs_.end(), index, behind);
  // Every turn takes at least one byte: the range was checked to lie inside the runs.
  for (; !out.empty(); ++at) {
    const run& from = *std::prev(at);
    const std::uint64_t end = std::uint64_t{at == runs_.end() ? count_ : at->index} * sector_size_;
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), end - offset));
    const std::uint64_t within = offset - std::uint64_t{from.index} * sector_size_;
    if (!read_or_zero(*below_, start_ + std::uint64_t{from.sector} * sector_size_ + within, out.first(part))) {
      return false;
    }
    out = out.subspan(part);
    offset += part;
  }
  return true;
}
