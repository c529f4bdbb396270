// Which paths have been met, by digests of 96 bits: 16 bytes a path, however long it is.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

// The first 16 bytes of a text's SHA-256. Throws std::bad_alloc.
using TextDigest = std::array<std::uint32_t, 4>;
[[nodiscard]] TextDigest digestOfText(std::string_view text);

class ReportPathSet {
 public:
  ReportPathSet() : slots_(std::size_t{1} << 12U) {}
  // The value kept with `path`, to read and to change: 0 at first.
  [[nodiscard]] std::uint32_t& valueOf(std::string_view path);
  // The value; 0 when nothing is kept with it.
  [[nodiscard]] std::uint32_t find(std::string_view path) const;

 private:
  // The digest's first three words, and the value.
  using Slot = std::array<std::uint32_t, 4>;
  static std::size_t place(const std::vector<Slot>& slots, const Slot& key) noexcept;
  std::vector<Slot> slots_;  // a slot whose key is zero is free
  std::size_t used_ = 0;
};
