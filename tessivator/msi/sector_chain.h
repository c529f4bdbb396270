// A chain of sectors as one range of bytes. Streams, the directory and the tables of a compound file all are such
// chains, and so is, over the mini stream, what is smaller than a sector.
#pragma once

#include <vector>

#include "msi/msi_source.h"

class sector_chain final : public msi_source {
 public:
  // Sectors of `sector_size` bytes, the first at `start` of `below`. The end of `below` may cut the last one: what it
  // lacks reads as zero.
  sector_chain(std::shared_ptr<msi_source> below, std::uint64_t start, std::uint32_t sector_size) noexcept;

  // The sectors that `below` has.
  [[nodiscard]] std::uint32_t sectors_below() const noexcept;
  // Adds a sector, which must be one of those, at the end. May throw std::bad_alloc.
  void append(std::uint32_t sector);
  // Cuts the range to `size` bytes; false when it is shorter.
  [[nodiscard]] bool cut(std::uint64_t size) noexcept;

  // Whether a sector occurs twice. May throw std::bad_alloc.
  [[nodiscard]] bool has_repeats() const;

  // Bytes of all its sectors.
  [[nodiscard]] std::uint64_t allocated() const noexcept { return std::uint64_t{count_} * sector_size_; }

  [[nodiscard]] std::uint64_t size() const noexcept override { return size_; }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override;

 private:
  // Sectors that follow each other in the chain and below.
  struct run {
    std::uint32_t index;  // in the chain, of the first one
    std::uint32_t sector;
  };
  std::shared_ptr<msi_source> below_;
  std::uint64_t start_;
  std::uint32_t sector_size_;
  std::uint32_t count_ = 0;
  std::uint64_t size_ = 0;
  std::vector<run> runs_;
};
