// A package's string pool: every text of its tables, numbered from 1.
//
// Stream _StringPool: a 4-byte header (code page; its highest bit says that string numbers in tables have three bytes
// instead of two), then one entry a string: 16-bit length, 16-bit reference count. Both zero: a free number. Length 0
// with references: the string is longer than 65,535 bytes and the next four bytes hold its length. Some writers put the
// length's high half where the references should be and its low half into the next entry; then only that reading adds
// up to the size of _StringData, which holds the bytes of all strings one after the other.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "msi/msi_source.h"

class string_pool {
 public:
  // Both streams are read through once: which numbers are in use, and which have one of `texts`, is then known. `texts`
  // outlives the pool. May throw std::bad_alloc, as all of these. Null when there is no whole header or a stream cannot
  // be read.
  [[nodiscard]] static std::unique_ptr<string_pool> open(std::shared_ptr<msi_source> pool,
                                                         std::shared_ptr<msi_source> data,
                                                         std::span<const std::string_view> texts);

  // Bytes of a string number in a table: 2 or 3.
  [[nodiscard]] std::uint32_t reference_size() const noexcept { return (header_ & long_references) != 0 ? 3 : 2; }
  [[nodiscard]] std::uint32_t code_page() const noexcept { return header_ & ~long_references; }

  // Whether `number` is that of a string.
  [[nodiscard]] bool has(std::uint32_t number) const noexcept { return number < used_.size() && used_[number]; }
  // Gets the numbers, rising, of the strings with the very bytes of `text` (some writers keep a string twice). One that
  // was not among the texts of `open` costs another reading. False when that fails.
  [[nodiscard]] bool find(std::string_view text, std::vector<std::uint32_t>& numbers);
  // Gets at most `most` bytes of string `number`. False for a number that is not in use and for bytes that cannot be
  // read.
  [[nodiscard]] bool read(std::uint32_t number, std::uint64_t most, std::vector<std::byte>& bytes);

 private:
  enum class long_form : std::uint8_t { length_follows, halves };
  // Where an entry lies, and in _StringData its string.
  struct position {
    std::uint32_t number = 1;
    std::uint64_t entry = 4;
    std::uint64_t offset = 0;
  };
  struct match {
    std::string_view text;
    std::vector<std::uint32_t> numbers;
  };

  string_pool(std::shared_ptr<msi_source> pool, std::shared_ptr<msi_source> data) noexcept;
  // Calls visit(position, length) for each string in use whose bytes exist, from `at` on, until it answers true or the
  // pool ends. Gives the end of the visited strings in _StringData; false when the pool cannot be read. Bound: one turn
  // an entry.
  template <class Visit>
  [[nodiscard]] bool walk(position at, std::uint64_t& end, Visit visit);
  [[nodiscard]] bool match_all(std::vector<match>& matches, std::uint64_t& end);
  [[nodiscard]] bool index(std::span<const std::string_view> texts, long_form form, bool& adds_up);

  static constexpr std::uint32_t long_references = 0x80000000;
  std::shared_ptr<msi_source> pool_;
  std::shared_ptr<msi_source> data_;
  std::uint32_t header_ = 0;
  long_form form_ = long_form::length_follows;
  std::vector<bool> used_;        // by number
  std::vector<position> blocks_;  // the first string in use of each block of numbers, or of a later one
  std::vector<match> matches_;
};
