// The only way to read bytes from a file: bounds-checked, little-endian, with arithmetic that cannot wrap.
#pragma once

#include <concepts>
#include <optional>

#include "common/qlib/qtypes.h"

// `length` bytes of `whole` at `offset`; nothing if they are not inside.
[[nodiscard]] inline std::optional<Bytes> qbytes_slice(Bytes whole, std::uint64_t offset,
                                                       std::uint64_t length) noexcept {
  if (offset > whole.size() || length > whole.size() - offset) return std::nullopt;
  return whole.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

// Reads forward through borrowed bytes; a read that does not fit returns false and changes nothing.
class ByteReader {
 public:
  explicit ByteReader(Bytes bytes) noexcept : rest_(bytes) {}

  [[nodiscard]] std::size_t remaining() const noexcept { return rest_.size(); }
  [[nodiscard]] Bytes rest() const noexcept { return rest_; }

  [[nodiscard]] bool skip(std::uint64_t count) noexcept {
    if (count > rest_.size()) return false;
    rest_ = rest_.subspan(static_cast<std::size_t>(count));
    return true;
  }

  [[nodiscard]] bool take(std::uint64_t count, Bytes& out) noexcept {
    if (count > rest_.size()) return false;
    out = rest_.first(static_cast<std::size_t>(count));
    rest_ = rest_.subspan(static_cast<std::size_t>(count));
    return true;
  }

  template <std::unsigned_integral T>
  [[nodiscard]] bool le(T& out) noexcept {
    if (sizeof(T) > rest_.size()) return false;
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      value =
          static_cast<T>(value | static_cast<T>(static_cast<T>(std::to_integer<std::uint8_t>(rest_[i])) << (8 * i)));
    }
    rest_ = rest_.subspan(sizeof(T));
    out = value;
    return true;
  }

 private:
  Bytes rest_;
};

// A little-endian integer at `offset`; nothing if it is not inside `whole`.
template <std::unsigned_integral T>
[[nodiscard]] std::optional<T> qbytes_le(Bytes whole, std::uint64_t offset) noexcept {
  const auto part = qbytes_slice(whole, offset, sizeof(T));
  if (!part) return std::nullopt;
  T value = 0;
  ByteReader reader(*part);
  if (!reader.le(value)) return std::nullopt;
  return value;
}
