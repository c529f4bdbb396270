#include "common/qlib/qfmt.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

#include "common/qlib/qprintable.h"
#include "common/qlib/qutf8.h"

namespace {

// Limit on widths and precisions: they come from our own formats, and no column is that wide.
constexpr std::uint32_t widest = 32767;

// The output: a buffer of fixed size, or a growing string.
class output {
 public:
  output(qchar* buffer, std::size_t capacity, qfmt_values values) noexcept
      : buffer_(buffer), capacity_(capacity), values_(values) {}
  output(std::u16string& text, qfmt_values values) noexcept : text_(&text), values_(values) {}

  void put(qchar unit) {
    if (text_ != nullptr) {
      text_->push_back(unit);
    } else if (used_ < capacity_) {
      buffer_[used_++] = unit;
    } else {
      cut_ = true;
    }
  }
  void put(std::u16string_view units) {
    for (const qchar unit : units) put(unit);
  }
  // An argument, or part of one.
  void put_value(std::u16string_view units) {
    for (std::size_t at = 0; at < units.size(); ++at) {
      put(values_ == qfmt_values::printable ? qprintable_unit(units, at) : units[at]);
    }
  }
  void fill(qchar unit, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) put(unit);
  }
  [[nodiscard]] std::size_t used() const noexcept { return used_; }
  [[nodiscard]] bool cut() const noexcept { return cut_; }

 private:
  qchar* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t used_ = 0;
  bool cut_ = false;
  std::u16string* text_ = nullptr;
  qfmt_values values_;
};

struct conversion {
  bool left = false;
  bool zeros = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool has_precision = false;
  std::size_t width = 0;
  std::size_t precision = 0;
  unsigned bits = 32;
  qchar kind = 0;
};

class argument_list {
 public:
  explicit argument_list(std::span<const qfmt_arg> arguments) noexcept : rest_(arguments) {}
  // A conversion without an argument prints a zero.
  qfmt_arg next() noexcept {
    if (rest_.empty()) return qfmt_arg(0);
    const qfmt_arg argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }

 private:
  std::span<const qfmt_arg> rest_;
};

std::uint64_t number_of(const qfmt_arg& argument) noexcept {
  return argument.type == qfmt_arg::kind::integer
             ? argument.integer
             : static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(argument.pointer));
}

std::uint32_t parse_number(const qchar*& at) noexcept {
  std::uint32_t value = 0;
  for (; *at >= u'0' && *at <= u'9'; ++at)
    value = std::min(value * 10 + static_cast<std::uint32_t>(*at - u'0'), widest);
  return value;
}

void parse_flags(const qchar*& at, conversion& how) noexcept {
  for (;; ++at) {
    switch (*at) {
      case u'-':
        how.left = true;
        break;
      case u'0':
        how.zeros = true;
        break;
      case u'+':
        how.plus = true;
        break;
      case u' ':
        how.blank = true;
        break;
      case u'#':
        how.alternate = true;
        break;
      default:
        return;
    }
  }
}

void parse_width(const qchar*& at, conversion& how, argument_list& arguments) noexcept {
  if (*at == u'*') {
    ++at;
    const auto width = static_cast<std::int32_t>(number_of(arguments.next()));
    how.left = how.left || width < 0;
    const std::uint32_t magnitude =
        width < 0 ? 0U - static_cast<std::uint32_t>(width) : static_cast<std::uint32_t>(width);
    how.width = std::min(magnitude, widest);
  } else {
    how.width = parse_number(at);
  }
}

void parse_precision(const qchar*& at, conversion& how, argument_list& arguments) noexcept {
  if (*at != u'.') return;
  ++at;
  how.has_precision = true;
  if (*at == u'*') {
    ++at;
    const auto precision = static_cast<std::int32_t>(number_of(arguments.next()));
    how.has_precision = precision >= 0;
    how.precision = precision < 0 ? 0 : std::min(static_cast<std::uint32_t>(precision), widest);
  } else {
    how.precision = parse_number(at);
  }
}

// Sizes are those of 64-bit Windows: a long has 32 bits.
void parse_size(const qchar*& at, conversion& how) noexcept {
  const std::u16string_view rest(at);
  constexpr std::array<std::pair<std::u16string_view, unsigned>, 11> sizes{{{u"ll", 64},
                                                                            {u"I64", 64},
                                                                            {u"I32", 32},
                                                                            {u"hh", 8},
                                                                            {u"h", 16},
                                                                            {u"l", 32},
                                                                            {u"w", 32},
                                                                            {u"z", 64},
                                                                            {u"j", 64},
                                                                            {u"t", 64},
                                                                            {u"I", 64}}};
  for (const auto& [name, bits] : sizes) {
    if (rest.starts_with(name)) {
      how.bits = bits;
      at += name.size();
      return;
    }
  }
}

void put_padded(output& out, const conversion& how, std::u16string_view prefix, std::size_t zeros,
                std::u16string_view body) {
  const std::size_t length = prefix.size() + zeros + body.size();
  const std::size_t padding = how.width > length ? how.width - length : 0;
  if (!how.left) out.fill(u' ', padding);
  out.put(prefix);
  out.fill(u'0', zeros);
  out.put_value(body);
  if (how.left) out.fill(u' ', padding);
}

// Reduces the argument to the size of the conversion; returns whether it is negative and leaves the magnitude.
bool magnitude_of(const conversion& how, std::uint64_t& value) noexcept {
  const std::uint64_t mask = how.bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << how.bits) - 1;
  value &= mask;
  const bool is_signed = how.kind == u'd' || how.kind == u'i';
  if (!is_signed || (value >> (how.bits - 1)) == 0) return false;
  value = (0 - value) & mask;
  return true;
}

void put_integer(output& out, const conversion& how, const qfmt_arg& argument) {
  std::uint64_t value = number_of(argument);
  const bool negative = magnitude_of(how, value);
  const bool hexadecimal = how.kind == u'x' || how.kind == u'X';
  const unsigned base = hexadecimal ? 16 : how.kind == u'o' ? 8 : 10;
  const char16_t* digits = how.kind == u'X' ? u"0123456789ABCDEF" : u"0123456789abcdef";
  std::array<qchar, 24> buffer{};
  std::size_t first = buffer.size();
  const bool was_zero = value == 0;
  for (; value != 0; value /= base) buffer[--first] = digits[value % base];
  if (was_zero && !(how.has_precision && how.precision == 0)) buffer[--first] = u'0';
  const std::u16string_view body(buffer.data() + first, buffer.size() - first);

  std::u16string_view prefix;
  if (how.kind == u'd' || how.kind == u'i') {
    prefix = negative ? u"-" : how.plus ? u"+" : how.blank ? u" " : u"";
  } else if (how.alternate && !was_zero && hexadecimal) {
    prefix = how.kind == u'X' ? u"0X" : u"0x";
  } else if (how.alternate && how.kind == u'o' && !was_zero) {
    prefix = u"0";
  }
  std::size_t zeros = how.precision > body.size() ? how.precision - body.size() : 0;
  if (!how.has_precision && how.zeros && !how.left && how.width > prefix.size() + body.size()) {
    zeros = how.width - prefix.size() - body.size();
  }
  put_padded(out, how, prefix, zeros, body);
}

void put_pointer(output& out, const qfmt_arg& argument) {
  conversion how;
  how.bits = 64;
  how.kind = u'X';
  how.has_precision = true;
  how.precision = 16;
  put_integer(out, how, argument);
}

// The length of a text, up to `limit`: with a precision a text need not be terminated.
template <class Unit>
std::size_t bounded_length(const Unit* text, const conversion& how) noexcept {
  if (!how.has_precision) return std::char_traits<Unit>::length(text);
  std::size_t length = 0;
  while (length < how.precision && text[length] != 0) ++length;
  return length;
}

// Narrow text is UTF-8; its precision counts bytes.
void put_narrow(output& out, const conversion& how, const char* text) {
  const std::string_view bytes(text, bounded_length(text, how));
  std::size_t units = 0;
  for (std::string_view rest = bytes; !rest.empty();) {
    const qutf8_step step = qutf8_next(rest);
    units += step.scalar > 0xFFFF ? 2 : 1;
    rest.remove_prefix(step.length);
  }
  const std::size_t padding = how.width > units ? how.width - units : 0;
  if (!how.left) out.fill(u' ', padding);
  for (std::string_view rest = bytes; !rest.empty();) {
    const qutf8_step step = qutf8_next(rest);
    if (step.scalar > 0xFFFF) {
      out.put(static_cast<qchar>(0xD800 + ((step.scalar - 0x10000) >> 10)));
      out.put(static_cast<qchar>(0xDC00 + ((step.scalar - 0x10000) & 0x3FF)));
    } else {
      const auto unit = static_cast<qchar>(step.scalar);
      out.put_value({&unit, 1});
    }
    rest.remove_prefix(step.length);
  }
  if (how.left) out.fill(u' ', padding);
}

void put_text(output& out, conversion how, const qfmt_arg& argument) {
  switch (argument.type) {
    case qfmt_arg::kind::wide:
      if (argument.pointer != nullptr) {
        const auto* text = static_cast<const qchar*>(argument.pointer);
        return put_padded(out, how, {}, 0, {text, bounded_length(text, how)});
      }
      break;
    case qfmt_arg::kind::narrow:
      if (argument.pointer != nullptr) return put_narrow(out, how, static_cast<const char*>(argument.pointer));
      break;
    default:
      // Not a text: print its number, which reads no memory.
      if (number_of(argument) != 0) {
        how.kind = u'u';
        how.bits = 64;
        how.has_precision = false;
        return put_integer(out, how, argument);
      }
  }
  put_padded(out, how, {}, 0, std::u16string_view(u"(null)").substr(0, how.has_precision ? how.precision : 6));
}

void put_conversion(output& out, const conversion& how, argument_list& arguments, std::u16string_view source) {
  switch (how.kind) {
    case u'd':
    case u'i':
    case u'u':
    case u'x':
    case u'X':
    case u'o':
      return put_integer(out, how, arguments.next());
    case u's':
    case u'S':
      return put_text(out, how, arguments.next());
    case u'c':
    case u'C': {
      const auto unit = static_cast<qchar>(number_of(arguments.next()));
      return put_padded(out, how, {}, 0, {&unit, 1});
    }
    case u'p':
      return put_pointer(out, arguments.next());
    case u'%':
      return out.put(u'%');
    default:
      return out.put(source);  // no conversion of ours: shown as it stands
  }
}

void run(output& out, const qchar* format, std::span<const qfmt_arg> list) {
  argument_list arguments(list);
  for (const qchar* at = format; *at != 0;) {
    if (*at != u'%') {
      out.put(*at++);
      continue;
    }
    const qchar* start = at++;
    conversion how;
    parse_flags(at, how);
    parse_width(at, how, arguments);
    parse_precision(at, how, arguments);
    parse_size(at, how);
    how.kind = *at;
    if (*at != 0) ++at;
    put_conversion(out, how, arguments, {start, static_cast<std::size_t>(at - start)});
  }
}

}  // namespace

int qfmt_format(qchar* destination, std::size_t destination_bytes, const qchar* format,
                std::span<const qfmt_arg> arguments, qfmt_values values) noexcept {
  const std::size_t capacity = destination_bytes / sizeof(qchar);
  if (destination == nullptr || capacity == 0) return -1;
  output out(destination, capacity - 1, values);
  if (format != nullptr) run(out, format, arguments);
  destination[out.used()] = 0;
  return out.cut() ? -1 : static_cast<int>(out.used());
}

bool qfmt_to_string(std::u16string& text, const qchar* format, std::span<const qfmt_arg> arguments,
                    qfmt_values values) noexcept try {
  std::u16string result;
  output out(result, values);
  if (format != nullptr) run(out, format, arguments);
  text = std::move(result);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}
