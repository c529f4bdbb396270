#include "msi/string_pool.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "common/qlib/qbytes.h"

namespace {

constexpr std::size_t entry_size = 4;
constexpr std::uint32_t numbers_a_block = 1024;
constexpr std::uint32_t most_numbers = 1U << 24;  // no table can name more

}  // namespace

string_pool::string_pool(std::shared_ptr<msi_source> pool, std::shared_ptr<msi_source> data) noexcept
    : pool_(std::move(pool)), data_(std::move(data)) {}

template <class Visit>
bool string_pool::walk(position at, std::uint64_t& end, Visit visit) {
  msi_window window(*pool_);
  std::uint64_t place = at.entry;
  const auto next = [&](std::uint16_t& low, std::uint16_t& high) noexcept {
    ByteReader reader(window.at(place, entry_size));
    place += entry_size;
    return reader.le(low) && reader.le(high);
  };
  std::uint16_t size = 0;
  std::uint16_t references = 0;
  for (; next(size, references); ++at.number, at.entry = place) {
    if (size == 0 && references == 0) continue;
    std::uint64_t length = size;
    if (size == 0) {
      std::uint16_t low = 0;
      std::uint16_t high = 0;
      if (!next(low, high)) break;
      length = std::uint64_t{form_ == long_form::halves ? references : high} << 16 | low;
    }
    if (length > data_->size() - at.offset) break;  // the pool lies: this string and all behind it have no bytes
    if (visit(at, length)) break;
    at.offset += length;
  }
  end = at.offset;
  return !window.failed();
}

// Notes each string that is in use, and for each of `matches` the numbers of those with its text.
bool string_pool::match_all(std::vector<match>& matches, std::uint64_t& end) {
  msi_window data(*data_);
  const bool complete = walk({}, end, [&](const position& at, std::uint64_t length) {
    if (at.number < most_numbers && at.number >= used_.size()) {
      used_.resize(at.number + 1);
      used_[at.number] = true;
      if (blocks_.size() <= at.number / numbers_a_block) blocks_.resize(at.number / numbers_a_block + 1, at);
    }
    for (match& m : matches) {
      if (m.text.size() != length) continue;
      const Bytes bytes = data.at(at.offset, m.text.size());
      if (bytes.size() == length && std::memcmp(bytes.data(), m.text.data(), bytes.size()) == 0) {
        m.numbers.push_back(at.number);
      }
    }
    return false;
  });
  return complete && !data.failed();
}

bool string_pool::index(std::span<const std::string_view> texts, long_form form, bool& adds_up) {
  form_ = form;
  used_.clear();
  blocks_.clear();
  matches_.clear();
  for (const std::string_view text : texts) matches_.push_back({text, {}});
  std::uint64_t end = 0;
  const bool complete = match_all(matches_, end);
  adds_up = end == data_->size();
  return complete;
}

std::unique_ptr<string_pool> string_pool::open(std::shared_ptr<msi_source> pool, std::shared_ptr<msi_source> data,
                                               std::span<const std::string_view> texts) {
  std::unique_ptr<string_pool> strings(new string_pool(std::move(pool), std::move(data)));
  std::array<std::byte, entry_size> header{};
  if (!strings->pool_->read(0, header) || !ByteReader(header).le(strings->header_)) return nullptr;
  bool adds_up = false;
  bool complete = strings->index(texts, long_form::length_follows, adds_up);
  if (complete && !adds_up) {
    complete = strings->index(texts, long_form::halves, adds_up);
    // Neither does: the pool is damaged, and read as most are written.
    if (complete && !adds_up) complete = strings->index(texts, long_form::length_follows, adds_up);
  }
  return complete ? std::move(strings) : nullptr;
}

bool string_pool::find(std::string_view text, std::vector<std::uint32_t>& numbers) {
  const auto known = std::ranges::find(matches_, text, &match::text);
  if (known != matches_.end()) {
    numbers = known->numbers;
    return true;
  }
  std::vector<match> matches(1, {text, {}});
  std::uint64_t end = 0;
  if (!match_all(matches, end)) return false;
  numbers = std::move(matches[0].numbers);
  return true;
}

bool string_pool::read(std::uint32_t number, std::uint64_t most, std::vector<std::byte>& bytes) {
  if (!has(number)) return false;
  std::uint64_t found = 0;
  std::uint64_t end = 0;
  const bool complete = walk(blocks_[number / numbers_a_block], end, [&](const position& at, std::uint64_t length) {
    found = at.number == number ? length : 0;
    return at.number >= number;
  });
  bytes.resize(static_cast<std::size_t>(std::min(found, most)));
  return complete && data_->read(end, bytes);
}
