#include "common/qlib/qstr.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/qlib/qconsole.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qutf8.h"

namespace {

// The Windows error of a conversion into a buffer that is too small, the only way ours can fail; the printed line has
// it on every platform.
constexpr std::uint32_t insufficient_buffer = 122;

char16_t fold_ascii(char16_t unit) noexcept {
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

// Copies the leading ASCII characters of `text` in the other width.
template <class Result, class Text>
Result ascii_head(Text text) {
  const auto end =
      std::find_if(text.begin(), text.end(), [](auto unit) { return static_cast<char32_t>(unit) >= 0x80; });
  Result head(static_cast<std::size_t>(end - text.begin()), 0);
  std::transform(text.begin(), end, head.begin(),
                 [](auto unit) { return static_cast<typename Result::value_type>(unit); });
  return head;
}

}  // namespace

qchar* qstr_dup(const qchar* text, std::uint32_t tag) noexcept {
  (void)tag;
  const std::size_t size = qstr_size(text);
  auto* copy = static_cast<qchar*>(qmem_alloc(size + sizeof(qchar)));
  if (copy == nullptr) return nullptr;
  qmem_copy(copy, text, size);
  copy[size / sizeof(qchar)] = 0;
  return copy;
}

std::size_t qstr_len(const qchar* text) noexcept { return text == nullptr ? 0 : std::char_traits<qchar>::length(text); }

std::size_t qstr_size(const qchar* text) noexcept { return qstr_len(text) * sizeof(qchar); }

qchar* qstr_from_ascii(qchar* destination, std::size_t destination_bytes, const char* source) noexcept {
  if (destination == nullptr || source == nullptr) return nullptr;
  const std::size_t length = std::strlen(source);
  if (destination_bytes / sizeof(qchar) < length + 1) return nullptr;
  for (std::size_t i = 0; i <= length; ++i) {
    const auto byte = static_cast<std::uint8_t>(source[i]);
    if (byte >= 128) return nullptr;
    destination[i] = byte;
  }
  return destination;
}

qchar* qstr_utoq(qchar* destination, std::size_t destination_bytes, const char* utf8) noexcept {
  if (destination == nullptr || utf8 == nullptr) return nullptr;
  const std::size_t capacity = destination_bytes / sizeof(qchar);
  const auto convert = [&](qchar* out) {
    std::size_t used = 0;
    for (std::string_view rest(utf8); !rest.empty();) {
      const qutf8_step step = qutf8_next(rest);
      const bool pair = step.scalar > 0xFFFF;
      if (out != nullptr) {
        if (pair) out[used] = static_cast<qchar>(0xD800 + ((step.scalar - 0x10000) >> 10));
        out[used + (pair ? 1 : 0)] =
            static_cast<qchar>(pair ? 0xDC00 + ((step.scalar - 0x10000) & 0x3FF) : step.scalar);
      }
      used += pair ? 2 : 1;
      rest.remove_prefix(step.length);
    }
    return used;
  };
  // Measured first: when the text does not fit, the destination must not change.
  const std::size_t needed = convert(nullptr);
  if (needed >= capacity) {
    (void)qstr_console_printf(u"%s(): MultiByteToWideChar() returned %lu\n", u"qstr_utoq", insufficient_buffer);
    return nullptr;
  }
  convert(destination);
  destination[needed] = 0;
  return destination;
}

char* qstr_qtou(char* destination, std::size_t destination_bytes, const qchar* wide) noexcept try {
  if (destination == nullptr || wide == nullptr) return nullptr;
  const std::string text = qstr_to_utf8(wide);
  if (text.size() >= destination_bytes) {
    (void)qstr_console_printf(u"%s(): WideCharToMultiByte() returned %d\n", u"qstr_qtou", insufficient_buffer);
    return nullptr;
  }
  std::memcpy(destination, text.c_str(), text.size() + 1);
  return destination;
} catch (const std::bad_alloc&) {
  return nullptr;
}

// Nearly all texts are pure ASCII and need no decoder.
std::string qstr_to_utf8(std::u16string_view wide) {
  std::string text = ascii_head<std::string>(wide);
  wide.remove_prefix(text.size());
  text.reserve(text.size() + wide.size());
  while (!wide.empty()) {
    const qutf8_step step = qutf16_next(wide);
    qutf8_append(text, step.scalar);
    wide.remove_prefix(step.length);
  }
  return text;
}

std::u16string qstr_to_wide(std::string_view utf8) {
  std::u16string text = ascii_head<std::u16string>(utf8);
  utf8.remove_prefix(text.size());
  text.reserve(text.size() + utf8.size());
  while (!utf8.empty()) {
    const qutf8_step step = qutf8_next(utf8);
    qutf16_append(text, step.scalar);
    utf8.remove_prefix(step.length);
  }
  return text;
}

int qstr_console_write(const qchar* format, std::span<const qfmt_arg> arguments) noexcept {
  std::u16string text;
  if (!qfmt_to_string(text, format, arguments, qfmt_values::printable)) return -1;
  return qconsole_put(text) ? static_cast<int>(text.size()) : -1;
}

bool qstr_equal_nocase(std::u16string_view a, std::u16string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (fold_ascii(a[i]) != fold_ascii(b[i])) return false;
  }
  return true;
}

void qstr_lower_ascii(qchar* text) noexcept {
  if (text == nullptr) return;
  for (; *text != 0; ++text) *text = fold_ascii(*text);
}
