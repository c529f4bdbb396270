// Writes a compound file in memory: streams of one root storage, in sectors of 512 or 4096 bytes.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/qlib/qtypes.h"

class compound_builder {
 public:
  explicit compound_builder(unsigned sector_shift = 9) : shift_(sector_shift) {}
  // Streams hang in one line: each is the right sibling of the one before.
  compound_builder& add(std::u16string name, std::string_view bytes) {
    streams_.emplace_back(std::move(name), std::string(bytes));
    return *this;
  }
  [[nodiscard]] std::vector<std::byte> build();

 private:
  struct place {
    std::uint32_t start;
    std::uint32_t size;
  };
  static constexpr std::uint32_t end = 0xFFFFFFFE;
  static constexpr std::uint32_t none = 0xFFFFFFFF;

  [[nodiscard]] std::size_t sector() const { return std::size_t{1} << shift_; }
  static void put(std::string& to, std::uint32_t value, std::size_t size = 4) {
    for (std::size_t i = 0; i < size; ++i) to.push_back(static_cast<char>(value >> (8 * i)));
  }
  static void set(std::string& in, std::size_t at, std::uint32_t value, std::size_t size = 4) {
    for (std::size_t i = 0; i < size; ++i) in[at + i] = static_cast<char>(value >> (8 * i));
  }
  // Appends `bytes` as whole sectors with a chain of their own.
  std::uint32_t append(const std::string& bytes) {
    if (bytes.empty()) return end;
    const auto first = static_cast<std::uint32_t>(fat_.size());
    body_ += bytes;
    body_.resize((body_.size() + sector() - 1) / sector() * sector());
    while (fat_.size() < body_.size() / sector()) fat_.push_back(static_cast<std::uint32_t>(fat_.size()) + 1);
    fat_.back() = end;
    return first;
  }
  void add_entry(std::string& directory, std::u16string_view name, char type, std::uint32_t right, std::uint32_t child,
                 place at) const;
  [[nodiscard]] std::vector<place> place_streams();
  [[nodiscard]] std::string header(std::uint32_t directory, std::uint32_t mini_fat, std::uint32_t mini_sectors);

  unsigned shift_;
  std::vector<std::pair<std::u16string, std::string>> streams_;
  std::string body_;
  std::string mini_;
  std::vector<std::uint32_t> fat_;
  std::vector<std::uint32_t> mini_fat_;
};

inline void compound_builder::add_entry(std::string& directory, std::u16string_view name, char type,
                                        std::uint32_t right, std::uint32_t child, place at) const {
  std::string entry(128, '\0');
  for (std::size_t i = 0; i < name.size(); ++i) set(entry, 2 * i, name[i], 2);
  set(entry, 64, static_cast<std::uint32_t>(2 * name.size() + 2), 2);
  entry[66] = type;
  entry[67] = 1;
  set(entry, 68, none);
  set(entry, 72, right);
  set(entry, 76, child);
  if (type == 5) {
    constexpr std::string_view installer("\x84\x10\x0C\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);
    entry.replace(80, 16, installer);
  }
  set(entry, 116, at.start);
  set(entry, 120, at.size);
  directory += entry;
}

inline std::vector<compound_builder::place> compound_builder::place_streams() {
  std::vector<place> places;
  for (const auto& [name, bytes] : streams_) {
    place at{end, static_cast<std::uint32_t>(bytes.size())};
    if (bytes.size() >= 4096) {
      at.start = append(bytes);
    } else if (!bytes.empty()) {
      at.start = static_cast<std::uint32_t>(mini_fat_.size());
      mini_ += bytes;
      mini_.resize((mini_.size() + 63) / 64 * 64);
      while (mini_fat_.size() < mini_.size() / 64)
        mini_fat_.push_back(static_cast<std::uint32_t>(mini_fat_.size()) + 1);
      mini_fat_.back() = end;
    }
    places.push_back(at);
  }
  return places;
}

// The sector table goes behind everything else, then the sectors that list more of it than the header can.
inline std::string compound_builder::header(std::uint32_t directory, std::uint32_t mini_fat,
                                            std::uint32_t mini_sectors) {
  const std::size_t per_sector = sector() / 4;
  const std::size_t used = fat_.size();
  std::size_t tables = 1;
  std::size_t lists = 0;
  while (used + tables + lists > tables * per_sector) {
    ++tables;
    lists = tables > 109 ? (tables - 109 + per_sector - 2) / (per_sector - 1) : 0;
  }
  for (std::size_t i = 0; i < tables; ++i) fat_.push_back(0xFFFFFFFD);
  for (std::size_t i = 0; i < lists; ++i) fat_.push_back(0xFFFFFFFC);
  fat_.resize(tables * per_sector, none);
  for (const std::uint32_t value : fat_) put(body_, value);
  std::size_t listed = 109;
  for (std::size_t i = 0; i < lists; ++i) {
    for (std::size_t k = 0; k + 1 < per_sector; ++k, ++listed) {
      put(body_, listed < tables ? static_cast<std::uint32_t>(used + listed) : none);
    }
    put(body_, i + 1 < lists ? static_cast<std::uint32_t>(used + tables + i + 1) : end);
  }
  std::string head("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1");
  head.resize(sector());
  set(head, 24, 0x3E, 2);
  set(head, 26, shift_ == 9 ? 3 : 4, 2);
  set(head, 28, 0xFFFE, 2);
  set(head, 30, shift_, 2);
  set(head, 32, 6, 2);
  set(head, 44, static_cast<std::uint32_t>(tables));
  set(head, 48, directory);
  set(head, 56, 4096);
  set(head, 60, mini_fat);
  set(head, 64, mini_sectors);
  set(head, 68, lists > 0 ? static_cast<std::uint32_t>(used + tables) : end);
  set(head, 72, static_cast<std::uint32_t>(lists));
  for (std::size_t i = 0; i < 109; ++i) set(head, 76 + 4 * i, i < tables ? static_cast<std::uint32_t>(used + i) : none);
  return head;
}

inline std::vector<std::byte> compound_builder::build() {
  const std::vector<place> places = place_streams();
  const place root{append(mini_), static_cast<std::uint32_t>(mini_.size())};
  std::string mini_fat;
  for (const std::uint32_t value : mini_fat_) put(mini_fat, value);
  const auto mini_sectors = static_cast<std::uint32_t>((mini_fat.size() + sector() - 1) / sector());
  mini_fat.resize(mini_sectors * sector(), '\xFF');
  const std::uint32_t mini_start = append(mini_fat);
  std::string directory;
  add_entry(directory, u"Root Entry", 5, none, streams_.empty() ? none : 1, root);
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    add_entry(directory, streams_[i].first, 2, i + 1 < streams_.size() ? static_cast<std::uint32_t>(i + 2) : none, none,
              places[i]);
  }
  const std::uint32_t directory_start = append(directory);
  const std::string whole = header(directory_start, mini_start, mini_sectors) + body_;
  const auto bytes = std::as_bytes(std::span(whole));
  return {bytes.begin(), bytes.end()};
}
