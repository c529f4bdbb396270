#include "common/qlib/qprintable.h"

namespace {

constexpr qchar replacement = 0xFFFD;

bool is_control(qchar unit) noexcept {
  return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || unit == 0x2028 || unit == 0x2029;
}

bool turns_direction(qchar unit) noexcept {
  return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x202A && unit <= 0x202E) ||
         (unit >= 0x2066 && unit <= 0x2069);
}

bool is_high(qchar unit) noexcept { return (unit & 0xFC00U) == 0xD800; }
bool is_low(qchar unit) noexcept { return (unit & 0xFC00U) == 0xDC00; }

}  // namespace

qchar qprintable_unit(std::u16string_view text, std::size_t at) noexcept {
  const qchar unit = text[at];
  if (is_control(unit) || turns_direction(unit)) return replacement;
  if (is_high(unit)) return at + 1 < text.size() && is_low(text[at + 1]) ? unit : replacement;
  if (is_low(unit)) return at > 0 && is_high(text[at - 1]) ? unit : replacement;
  return unit;
}

std::u16string qprintable(std::u16string_view text) {
  std::u16string shown(text.size(), 0);
  for (std::size_t at = 0; at < text.size(); ++at) shown[at] = qprintable_unit(text, at);
  return shown;
}
