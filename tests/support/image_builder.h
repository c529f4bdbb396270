// Small images made in memory, field by field.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "common/qlib/qtypes.h"

// Bytes that grow as far as fields are put; all little-endian.
class byte_builder {
 public:
  byte_builder& put(std::size_t offset, std::uint64_t value, std::size_t width) {
    if (bytes_.size() < offset + width) bytes_.resize(offset + width);
    for (std::size_t i = 0; i < width; ++i) bytes_[offset + i] = static_cast<std::byte>(value >> (8 * i));
    return *this;
  }
  byte_builder& u16(std::size_t offset, std::uint64_t value) { return put(offset, value, 2); }
  byte_builder& u32(std::size_t offset, std::uint64_t value) { return put(offset, value, 4); }
  byte_builder& text(std::size_t offset, std::string_view value) {
    for (std::size_t i = 0; i < value.size(); ++i) put(offset + i, static_cast<unsigned char>(value[i]), 1);
    return *this;
  }
  byte_builder& size(std::size_t bytes) {
    bytes_.resize(bytes);
    return *this;
  }
  [[nodiscard]] const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

// An image with its NT headers at 0x80, one section (RVA 0x1000, file offset 0x400, 0x800 bytes) that starts with the
// resource directory, and no signature. Fields are changed afterwards through the offsets below.
struct image_layout {
  bool is_64bit = false;
  static constexpr std::size_t nt = 0x80;
  static constexpr std::size_t characteristics = nt + 22;
  static constexpr std::uint32_t section_rva = 0x1000;
  static constexpr std::uint32_t section_offset = 0x400;
  static constexpr std::uint32_t section_size = 0x800;
  [[nodiscard]] std::size_t directory(std::size_t index) const { return nt + 24 + (is_64bit ? 112U : 96U) + 8 * index; }
  [[nodiscard]] std::size_t sections() const { return nt + 24 + (is_64bit ? 240U : 224U); }

  [[nodiscard]] byte_builder build() const {
    byte_builder out;
    out.text(0, "MZ").u32(60, nt).text(nt, "PE").u16(nt + 4, is_64bit ? 0x8664 : 0x14C).u16(nt + 6, 1);
    out.u16(nt + 20, is_64bit ? 240 : 224).u16(characteristics, 2).u16(nt + 24, is_64bit ? 0x20B : 0x10B);
    out.u32(directory(2), section_rva).u32(directory(2) + 4, section_size);
    out.text(sections(), ".rsrc").u32(sections() + 8, section_size).u32(sections() + 12, section_rva);
    out.u32(sections() + 16, section_size).u32(sections() + 20, section_offset);
    return out.size(section_offset + section_size);
  }
};

// A resource directory at `offset` with ID entries {id, offset}.
inline void put_directory(byte_builder& out, std::size_t offset,
                          const std::vector<std::pair<std::uint32_t, std::uint32_t>>& entries) {
  out.u16(offset + 14, entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    out.u32(offset + 16 + 8 * i, entries[i].first).u32(offset + 20 + 8 * i, entries[i].second);
  }
}
