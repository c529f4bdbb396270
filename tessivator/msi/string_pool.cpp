#include "msi/string_pool.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "common/qlib/qbytes.h"
#include "msi/code_page.h"

namespace {
constexpr std::size_t entry_size = 4;
}

template <class Visit>
std::uint64_t string_pool::walk(long_form form, Visit visit) {
  msi_window window(pool_);
  std::uint64_t total = 0;
  std::uint64_t place = entry_size;
  const auto next = [&](std::uint16_t& low, std::uint16_t& high) noexcept {
    ByteReader reader(window.at(place, entry_size));
    place += entry_size;
    return reader.le(low) && reader.le(high);
  };
  std::uint16_t size = 0;
  std::uint16_t references = 0;
  for (std::uint32_t number = 1; next(size, references); ++number) {
    if (size == 0 && references == 0) continue;
    std::uint64_t length = size;
    if (size == 0) {
      std::uint16_t low = 0;
      std::uint16_t high = 0;
      if (!next(low, high)) break;
      length = std::uint64_t{form == long_form::halves ? references : high} << 16 | low;
    }
    if (length > data_.size() - total) break;  // the pool lies: this string and all behind it have no bytes
    if (visit(item{number, total, length})) break;
    total += length;
  }
  failed_ |= window.failed();
  return total;
}

bool string_pool::open() noexcept {
  std::array<std::byte, entry_size> header{};
  if (!pool_.read(0, header) || !ByteReader(header).le(header_)) return false;
  const auto all = [](const item&) noexcept { return false; };
  form_ = long_form::length_follows;
  if (walk(long_form::length_follows, all) != data_.size() && walk(long_form::halves, all) == data_.size()) {
    form_ = long_form::halves;
  }
  return readable();
}

std::vector<std::uint32_t> string_pool::find(std::string_view text) {
  std::vector<std::uint32_t> found;
  msi_window data(data_);
  walk(form_, [&](const item& at) {
    if (at.length != text.size()) return false;
    const Bytes bytes = data.at(at.offset, text.size());
    if (bytes.size() == text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0) {
      found.push_back(at.number);
    }
    return false;
  });
  failed_ |= data.failed();
  return found;
}

bool string_pool::text(std::uint32_t number, std::u16string& out) {
  if (number == 0) {
    out.clear();
    return true;
  }
  std::optional<item> found;
  walk(form_, [&](const item& at) noexcept {
    if (at.number < number) return false;
    if (at.number == number) found = at;
    return true;
  });
  if (!found) return false;
  // No code page takes more bytes for a unit; what these make is cut below.
  constexpr std::uint64_t bytes_a_unit = 8;
  std::vector<std::byte> bytes(static_cast<std::size_t>(std::min(found->length, bytes_a_unit * longest)));
  if (!data_.read(found->offset, bytes)) return false;
  std::u16string decoded = code_page_decode(code_page(), bytes);
  decoded.resize(msi_cut_length(decoded.data(), decoded.size()));
  out = std::move(decoded);
  return true;
}
