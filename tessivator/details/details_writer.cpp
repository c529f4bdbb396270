#include "details/details_writer.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstring>

#include "common/qlib/qerr.h"
#include "common/qlib/qutf8.h"
#include "details/details_fields.h"
#include "details/details_json.h"
#include "details/details_text.h"

namespace {

using json_buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, details_json_memory>;
using json_base =
    rapidjson::Writer<json_buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, details_json_memory, rapidjson::kWriteNoFlags>;

// Most texts hold nothing that must be escaped: they go out in one piece, for which the library has no call.
class json_writer : public json_base {
 public:
  using json_base::json_base;
  void plain(std::string_view text) {
    Prefix(rapidjson::kStringType);
    char* const at = os_->Push(text.size() + 2);
    at[0] = '"';
    std::copy(text.begin(), text.end(), at + 1);
    at[text.size() + 1] = '"';
  }
};

// Texts and list elements end here; the room behind it is for keys, numbers, closing brackets and problems.
constexpr std::size_t largest_values = DETAILS_LARGEST_LINE - 65536;
constexpr std::size_t most_elements = details_most_values - 4096;  // counted as values
constexpr std::size_t largest_problems = 256;

// Whether all characters of a text are ASCII, and which of them must be escaped in JSON, eight at a time.
enum class text_kind : std::uint8_t { plain, escaped, wide };

text_kind kind_of(std::string_view text) noexcept {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t tops = 0x80 * ones;
  std::uint64_t all = 0;
  std::uint64_t found = 0;
  for (std::size_t i = 0; i < text.size(); i += 8) {
    std::uint64_t bytes = ' ' * ones;
    std::memcpy(&bytes, text.data() + i, std::min<std::size_t>(8, text.size() - i));
    all |= bytes;
    const std::uint64_t quotes = bytes ^ '"' * ones;
    const std::uint64_t slashes = bytes ^ '\\' * ones;
    // The top bit of each byte that was below 0x20, a quote or a backslash; exact where none was above 0x7F.
    found |= ((bytes - 0x20 * ones) | (quotes - ones) | (slashes - ones)) & ~bytes;
  }
  if ((all & tops) != 0) return text_kind::wide;
  return (found & tops) != 0 ? text_kind::escaped : text_kind::plain;
}

// Problems are written where no room is checked any more.
bool is_code(std::string_view text) noexcept {
  return text.size() <= 64 && text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == text.npos;
}

// What the text takes in the line, at most.
std::size_t escaped_size(std::string_view text) noexcept {
  std::size_t size = text.size() + 2;
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20) size += 5;
    if (c == '"' || c == '\\') ++size;
  }
  return size;
}

}  // namespace

class details_writer::state {
 public:
  template <class Record>
  std::string_view line_of(const Record& record) {
    buffer_.Clear();
    json_.Reset(buffer_);
    left_out_.clear();
    values_ = 1;
    depth_ = 1;
    json_.StartObject();
    key("type");
    put(details_type<Record>);
    if constexpr (std::is_same_v<Record, details_header>) {
      key("format");
      put(DETAILS_FORMAT);
    }
    details_fields(*this, record);
    json_.EndObject();
    buffer_.Put('\n');
    return {buffer_.GetString(), buffer_.GetSize()};
  }

  void needed(std::string_view name, const std::string& text) {
    key(name);
    if (put_text(text)) return;
    put("");
    leave_out(name, 1);
  }

  void text(std::string_view name, const std::string& text) {
    if (text.empty()) return;
    const prepared valid = prepare(text);
    if (!fits(valid)) return leave_out(name, 1);
    key(name);
    put(valid);
  }

  void bytes(std::string_view name, const std::string& bytes) {
    if (bytes.empty()) return;
    // Checked before it is encoded: four characters for three bytes.
    if (bytes.size() > largest_values) return leave_out(name, 1);
    encoded_.clear();
    details_base64_append(encoded_, bytes);
    text(name, encoded_);
  }

  void number(std::string_view name, std::uint64_t number) {
    key(name);
    json_.Uint64(number);
  }

  void decimal(std::string_view name, std::uint64_t number) {
    if (number == 0) return;
    key(name);
    put(std::to_string(number));
  }

  void flag(std::string_view name, bool is) {
    key(name);
    json_.Bool(is);
  }
  void flag(std::string_view name, const std::optional<bool>& is) {
    if (is) flag(name, *is);
  }

  void kind(std::string_view name, details_kind kind) {
    key(name);
    put(details_kind_names[static_cast<std::size_t>(kind)]);
  }

  template <class Record>
  void object(std::string_view name, const Record& record) {
    key(name);
    put_record(record);
  }
  template <class Record>
  void object(std::string_view name, const std::optional<Record>& record) {
    if (record) object(name, *record);
  }

  template <class Element>
  void list(std::string_view name, const std::vector<Element>& elements) {
    if (elements.empty()) return;
    // Two levels for the list and a record in it, one for a list in that.
    if (depth_ + 3 > details_deepest) return leave_out(name, elements.size());
    key(name);
    json_.StartArray();
    ++depth_;
    std::size_t done = 0;
    while (done < elements.size() && values_ < most_elements && put_element(elements[done])) ++done, ++values_;
    --depth_;
    json_.EndArray();
    if (done < elements.size()) leave_out(name, elements.size() - done);
  }

  void problems(std::string_view name, const std::vector<details_problem>& problems) {
    std::size_t done = 0;
    const auto add = [&](const std::vector<details_problem>& some) {
      for (const details_problem& problem : some) {
        if (done == largest_problems || !is_code(problem.code)) continue;
        if (done++ == 0) {
          key(name);
          json_.StartArray();
        }
        json_.StartObject();
        key("code");
        put(problem.code);
        number("count", problem.count);
        json_.EndObject();
      }
    };
    add(left_out_);
    add(problems);
    if (done != 0) json_.EndArray();
  }

  void complete(std::string_view name, bool is) { flag(name, is && left_out_.empty()); }

 private:
  // A text that is UTF-8.
  struct prepared {
    std::string_view text;
    bool plain;  // nothing of it must be escaped
  };

  void key(std::string_view name) {
    json_.plain(name);
    values_ += 2;
  }
  void put(std::string_view plain) { json_.plain(plain); }
  void put(const prepared& it) {
    if (it.plain) return json_.plain(it.text);
    json_.String(it.text.data(), static_cast<rapidjson::SizeType>(it.text.size()));
  }
  bool put_text(std::string_view text) {
    const prepared valid = prepare(text);
    if (!fits(valid)) return false;
    put(valid);
    return true;
  }

  // Valid until the next call.
  prepared prepare(std::string_view text) {
    const text_kind kind = kind_of(text);
    if (kind != text_kind::wide) return {text, kind == text_kind::plain};
    repaired_.clear();
    while (!text.empty()) {
      const qutf8_step step = qutf8_next(text);
      qutf8_append(repaired_, step.scalar);
      text.remove_prefix(step.length);
    }
    return {repaired_, false};
  }

  [[nodiscard]] std::size_t room() const noexcept {
    return largest_values - std::min(buffer_.GetSize(), largest_values);
  }
  [[nodiscard]] bool fits(const prepared& it) const noexcept {
    if (it.plain) return it.text.size() + 2 <= room();
    return it.text.size() <= room() / 6 ? room() != 0 : escaped_size(it.text) <= room();
  }

  template <class Record>
  void put_record(const Record& record) {
    json_.StartObject();
    ++depth_;
    details_fields(*this, record);
    --depth_;
    json_.EndObject();
  }

  // Pairs of texts are written whole or not at all; of anything larger what fits.
  [[nodiscard]] bool has_room(const details_listed& it) { return both_fit(it.name, it.sha256); }
  [[nodiscard]] bool has_room(const details_digest& it) { return both_fit(it.algorithm, it.value); }
  [[nodiscard]] bool has_room(const details_value& it) { return both_fit(it.name, it.value); }
  [[nodiscard]] bool has_room(const auto&) const noexcept { return room() != 0; }
  [[nodiscard]] bool both_fit(std::string_view one, std::string_view other) {
    constexpr std::size_t keys = 64;
    if (keys + 6 * (one.size() + other.size()) <= room()) return true;
    const std::size_t size = escaped_size(prepare(one).text);
    return keys + size + escaped_size(prepare(other).text) <= room();
  }

  bool put_element(const std::string& text) { return put_text(text); }
  template <class Record>
  bool put_element(const Record& record) {
    if (!has_room(record)) return false;
    put_record(record);
    return true;
  }

  void leave_out(std::string_view name, std::uint64_t count) {
    const std::string code = std::string(name) + "_cut";
    for (details_problem& known : left_out_) {
      if (known.code != code) continue;
      known.count += count;
      return;
    }
    left_out_.push_back({code, count});
  }

  json_buffer buffer_;
  json_writer json_{buffer_};
  std::string encoded_;   // of bytes() while it runs
  std::string repaired_;  // of valid_form()
  std::vector<details_problem> left_out_;
  std::size_t values_ = 0;  // keys and values
  int depth_ = 0;           // of brackets
};

details_writer::details_writer() noexcept = default;
details_writer::~details_writer() = default;

template <class Record>
qerr_t details_writer::write_any(const Record& record, std::string_view& line) noexcept try {
  if (!state_) state_ = std::make_unique<state>();
  line = state_->line_of(record);
  return QERR_OK;
} catch (...) {
  state_.reset();
  return QERR_LOW_MEMORY;
}

qerr_t details_writer::write(const details_header& record, std::string_view& line) noexcept {
  return write_any(record, line);
}
qerr_t details_writer::write(const details_file& record, std::string_view& line) noexcept {
  return write_any(record, line);
}
qerr_t details_writer::write(const details_certificate& record, std::string_view& line) noexcept {
  return write_any(record, line);
}
qerr_t details_writer::write(const details_members& record, std::string_view& line) noexcept {
  return write_any(record, line);
}
qerr_t details_writer::write(const details_end& record, std::string_view& line) noexcept {
  return write_any(record, line);
}
