// The log's mask parser and the formatter: arbitrary texts, with arguments that may not fit the format.
#include <array>
#include <memory>
#include <string>

#include "common/qlib/qfmt.h"
#include "common/qlib/qstr.h"
#include "target.h"

namespace {

constexpr std::size_t widest = 32767;  // one conversion, whatever its width and precision say

// What was read is what is shown, and reading that again changes nothing.
void parse_masks(const std::u16string& text) {
  static std::array<qchar, 4096> shown, again;
  (void)qlog_set_logtype(nullptr);
  (void)qlog_set_logtype(text.c_str());
  check(qlog_get_logtype(shown.data()) == 0 && qlog_set_logtype(shown.data()) == 0);
  check(qlog_get_logtype(again.data()) == 0 && std::u16string_view(again.data()) == shown.data());
}

void format(const std::u16string& text) {
  const std::array<qfmt_arg, 6> arguments{
      qfmt_arg(-1),  qfmt_arg(u"wide \xD800"), qfmt_arg("narrow \xFF"), qfmt_arg(INT64_MIN), qfmt_arg(200),
      qfmt_arg(text)};
  for (std::size_t shift = 0; shift < arguments.size(); ++shift) {
    std::u16string out;
    check(!qfmt_to_string(out, text.c_str(), std::span(arguments).subspan(shift)) ||
          out.size() <= widest * (1 + text.size() / 2));
    for (const std::size_t capacity : {std::size_t{1}, std::size_t{7}, out.size() + 1}) {
      const auto buffer = std::make_unique<qchar[]>(capacity);  // its end is seen by a sanitizer
      const int units = qstr_printf(buffer.get(), capacity * sizeof(qchar), text.c_str(), -1, u"wide", "narrow", 200);
      check(units < static_cast<int>(capacity));
      check(buffer[units < 0 ? capacity - 1 : static_cast<std::size_t>(units)] == 0);
    }
  }
}

}  // namespace

void fuzz(Bytes input) {
  const std::u16string text = qstr_to_wide(std::string(reinterpret_cast<const char*>(input.data()), input.size()));
  parse_masks(text);
  format(text.substr(0, 200));
}
