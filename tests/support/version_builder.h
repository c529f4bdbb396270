// Writes version resources block by block, well-formed or not, as the tests ask.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace version_builder {

using Buffer = std::vector<std::byte>;

inline void put16(Buffer& to, std::size_t value) {
  to.push_back(static_cast<std::byte>(value & 0xFF));
  to.push_back(static_cast<std::byte>((value >> 8) & 0xFF));
}
inline void set16(Buffer& in, std::size_t at, std::size_t value) {
  in.at(at) = static_cast<std::byte>(value & 0xFF);
  in.at(at + 1) = static_cast<std::byte>((value >> 8) & 0xFF);
}
inline void pad4(Buffer& to) { to.resize((to.size() + 3) & ~std::size_t{3}); }
inline void put_text(Buffer& to, std::u16string_view text) {
  for (const char16_t unit : text) put16(to, unit);
}

// What a block says about itself where that is not the truth.
struct Lies {
  std::optional<std::size_t> length = std::nullopt;
  std::optional<std::size_t> value_length = std::nullopt;
};

inline Buffer block(std::u16string_view key, const Buffer& value, std::size_t value_length,
                    const std::vector<Buffer>& children = {}, Lies lies = {}) {
  Buffer out(6);
  put_text(out, key);
  put16(out, 0);
  pad4(out);
  out.insert(out.end(), value.begin(), value.end());
  for (const Buffer& child : children) {
    pad4(out);
    out.insert(out.end(), child.begin(), child.end());
  }
  set16(out, 0, lies.length.value_or(out.size()));
  set16(out, 2, lies.value_length.value_or(value_length));
  return out;
}

// A value and its terminator, counted in characters as the format has it.
inline Buffer string(std::u16string_view key, std::u16string_view text, Lies lies = {}) {
  Buffer value;
  put_text(value, text);
  put16(value, 0);
  return block(key, value, value.size() / 2, {}, lies);
}
inline Buffer table(std::u16string_view language, const std::vector<Buffer>& strings, Lies lies = {}) {
  return block(language, {}, 0, strings, lies);
}
inline Buffer string_info(const std::vector<Buffer>& tables, Lies lies = {}) {
  return block(u"StringFileInfo", {}, 0, tables, lies);
}
inline Buffer var_info() { return block(u"VarFileInfo", {}, 0, {block(u"Translation", Buffer(4), 4)}); }
// The root with its 52 bytes of fixed information.
inline Buffer version(const std::vector<Buffer>& children, Lies lies = {},
                      std::u16string_view key = u"VS_VERSION_INFO") {
  return block(key, Buffer(52), 52, children, lies);
}
inline Buffer english(const std::vector<Buffer>& strings) {
  return version({string_info({table(u"040904b0", strings)})});
}

}  // namespace version_builder
