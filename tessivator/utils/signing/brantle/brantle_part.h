// A scan's share of a repository: several scans together do the work of one. Each walks the whole repository and
// handles the files whose paths its number selects.
#pragma once

#include <cstdint>
#include <string_view>

inline constexpr std::uint32_t BRANTLE_MOST_PARTS = 65536;

struct BrantlePart {
  std::uint32_t index = 0;  // from 1; 0 is the whole scan
  std::uint32_t count = 0;

  [[nodiscard]] bool isWhole() const noexcept { return index == 0; }
  // Reads "2/4"; false for anything but 1 <= index <= count <= BRANTLE_MOST_PARTS, and the part stays.
  [[nodiscard]] bool read(std::string_view text) noexcept;
};
