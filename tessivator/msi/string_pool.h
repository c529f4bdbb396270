// A package's string pool: every text of its tables, numbered from 1.
//
// Stream _StringPool: a 4-byte header (code page; its highest bit says that string numbers in tables have three bytes
// instead of two), then one entry a string: 16-bit length, 16-bit reference count. Both zero: a free number. Length 0
// with references: the string is longer than 65,535 bytes and the next four bytes hold its length. Some writers put the
// length's high half where the references should be and its low half into the next entry; then only that reading adds
// up to the size of _StringData, which holds the bytes of all strings one after the other.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "msi/msi_database.h"
#include "msi/msi_source.h"

class string_pool {
 public:
  // Both streams are borrowed. `open` reads through the entries once; false when there is no whole header, or when
  // they cannot be read.
  string_pool(msi_source& pool, msi_source& data) noexcept : pool_(pool), data_(data) {}
  [[nodiscard]] bool open() noexcept;

  // Bytes of a string number in a table: 2 or 3.
  [[nodiscard]] std::uint32_t reference_size() const noexcept { return (header_ & long_references) != 0 ? 3 : 2; }
  [[nodiscard]] std::uint32_t code_page() const noexcept { return header_ & ~long_references; }

  // Whether all reads so far succeeded; what was found by others is not all there is.
  [[nodiscard]] bool readable() const noexcept { return !failed_; }

  // The numbers, rising, of the strings with the very bytes of `text`: some writers keep a string twice. May throw
  // std::bad_alloc.
  [[nodiscard]] std::vector<std::uint32_t> find(std::string_view text);

  // Text of string `number`; number 0 is the empty text. Cut at `longest` units, never inside a pair. False for a
  // number that is not in use and for bytes that cannot be read. May throw std::bad_alloc.
  [[nodiscard]] bool text(std::uint32_t number, std::u16string& out);
  static constexpr std::size_t longest = MSI_MAX_TEXT;

 private:
  enum class long_form : std::uint8_t { length_follows, halves };
  struct item {
    std::uint32_t number;
    std::uint64_t offset;  // in _StringData
    std::uint64_t length;
  };
  // Calls visit(item) for each string in use whose bytes exist, until it answers true or the pool ends; returns the
  // bytes that the visited strings take. Bound: one turn an entry.
  template <class Visit>
  std::uint64_t walk(long_form form, Visit visit);

  static constexpr std::uint32_t long_references = 0x80000000;
  msi_source& pool_;
  msi_source& data_;
  std::uint32_t header_ = 0;
  long_form form_ = long_form::length_follows;
  bool failed_ = false;
};
