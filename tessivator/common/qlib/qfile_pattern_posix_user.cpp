#include "common/qlib/qfile_pattern_posix_user.h"

#include <algorithm>
#include <array>
#include <vector>

namespace {

// Ranges of lower-case letters and the distance to their capitals. Where the two alternate, every second unit is a
// lower-case letter.
struct letter_range {
  char16_t first, last;
  int to_capital;
  bool alternates;
};

constexpr std::array<letter_range, 25> ranges{{
    {0x0061, 0x007A, -32, false}, {0x00E0, 0x00F6, -32, false}, {0x00F8, 0x00FE, -32, false},
    {0x00FF, 0x00FF, 121, false}, {0x0101, 0x012F, -1, true},   {0x0133, 0x0137, -1, true},
    {0x013A, 0x0148, -1, true},   {0x014B, 0x0177, -1, true},   {0x017A, 0x017E, -1, true},
    {0x01CE, 0x01DC, -1, true},   {0x03AC, 0x03AC, -38, false}, {0x03AD, 0x03AF, -37, false},
    {0x03B1, 0x03C1, -32, false}, {0x03C3, 0x03CB, -32, false}, {0x03CC, 0x03CC, -64, false},
    {0x03CD, 0x03CE, -63, false}, {0x0430, 0x044F, -32, false}, {0x0450, 0x045F, -80, false},
    {0x0461, 0x0481, -1, true},   {0x048B, 0x04BF, -1, true},   {0x04D1, 0x052F, -1, true},
    {0x0561, 0x0586, -48, false}, {0x1E01, 0x1E95, -1, true},   {0x1EA1, 0x1EFF, -1, true},
    {0xFF41, 0xFF5A, -32, false},
}};

// Letters of the Latin, Greek, Cyrillic and Armenian scripts; others have no case or stay as they are.
char16_t capital(char16_t unit) noexcept {
  const auto* const range = std::lower_bound(ranges.begin(), ranges.end(), unit,
                                             [](const letter_range& one, char16_t u) { return one.last < u; });
  if (range == ranges.end() || unit < range->first) return unit;
  if (range->alternates && (unit - range->first) % 2 != 0) return unit;
  return static_cast<char16_t>(unit + range->to_capital);
}

bool is_wildcard(char16_t unit) noexcept { return unit == u'*' || unit == u'?'; }

// Before a period, * matches up to the last period of a name, but never that period itself.
bool stops_at_last_period(std::u16string_view pattern, std::size_t at) noexcept {
  return at + 1 < pattern.size() && pattern[at + 1] == u'.';
}

// Whether the pattern's unit at `at` may match nothing at the end of a name.
bool can_end(std::u16string_view pattern, std::size_t at) noexcept {
  if (is_wildcard(pattern[at])) return true;
  return pattern[at] == u'.' && at + 1 < pattern.size() && is_wildcard(pattern[at + 1]);
}

}  // namespace

// The rules of [MS-FSA] 2.1.4.4 for the DOS wildcards into which the search functions of Windows turn * and ?. Keeps
// all positions of the pattern that match so far; a wildcard leaves several, and none is tried twice.
bool qfile_name_matches(std::u16string_view pattern, std::u16string_view name) {
  std::vector<bool> here(pattern.size() + 1);
  std::vector<bool> next(pattern.size() + 1);
  here[0] = true;
  const std::size_t last_period = name.rfind(u'.');
  for (std::size_t unit_at = 0; unit_at < name.size(); ++unit_at) {
    const char16_t unit = name[unit_at];
    next.assign(next.size(), false);
    for (std::size_t at = 0; at < pattern.size(); ++at) {
      if (!here[at]) continue;
      if (pattern[at] == u'*') {
        here[at + 1] = true;
        if (unit_at != last_period || !stops_at_last_period(pattern, at)) next[at] = true;
      } else if (pattern[at] == u'?') {
        (unit == u'.' ? here : next)[at + 1] = true;
      } else if (capital(pattern[at]) == capital(unit)) {
        next[at + 1] = true;
      }
    }
    here.swap(next);
  }
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    if (here[at] && can_end(pattern, at)) here[at + 1] = true;
  }
  return here[pattern.size()];
}
