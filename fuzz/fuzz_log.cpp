// The log's mask parser and the formatter: arbitrary texts, with arguments that may not fit the format.
#include <array>
#include <cstring>
#include <memory>

#include "budget.h"
#include "common/qlib/qfmt.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"

namespace {

constexpr std::size_t widest = 32767;  // one conversion, whatever its width and precision say

// What was read is what is shown, and reading that again changes nothing.
void parse_masks(const std::u16string& text) {
  static std::array<qchar, 4096> shown, again;
  (void)qlog_set_logtype(nullptr);
  (void)qlog_set_logtype(text.c_str());
  if (qlog_get_logtype(shown.data()) != 0 || qlog_set_logtype(shown.data()) != 0) std::abort();
  if (qlog_get_logtype(again.data()) != 0 || qstr_len(again.data()) != qstr_len(shown.data())) std::abort();
  if (std::memcmp(shown.data(), again.data(), qstr_size(shown.data())) != 0) std::abort();
}

void format(const std::u16string& text) {
  const std::array<qfmt_arg, 6> arguments{
      qfmt_arg(-1),  qfmt_arg(u"wide \xD800"), qfmt_arg("narrow \xFF"), qfmt_arg(INT64_MIN), qfmt_arg(200),
      qfmt_arg(text)};
  for (std::size_t shift = 0; shift < arguments.size(); ++shift) {
    std::u16string out;
    if (qfmt_to_string(out, text.c_str(), std::span(arguments).subspan(shift)) &&
        out.size() > widest * (1 + text.size() / 2))
      std::abort();
    for (const std::size_t capacity : {std::size_t{1}, std::size_t{7}, out.size() + 1}) {
      const auto buffer = std::make_unique<qchar[]>(capacity);  // its end is seen by a sanitizer
      const int units = qstr_printf(buffer.get(), capacity * sizeof(qchar), text.c_str(), -1, u"wide", "narrow", 200);
      if (units >= static_cast<int>(capacity) ||
          buffer[units < 0 ? capacity - 1 : static_cast<std::size_t>(units)] != 0)
        std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = qlib_lib_init_basic() == 0;
  const budget spent(size);
  if (!started) std::abort();
  qlog_console_off();
  const std::u16string text = qstr_to_wide(std::string(reinterpret_cast<const char*>(data), size));
  parse_masks(text);
  format(text.substr(0, 200));
  return 0;
}
