#include "details/details_parser.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "details/details_fields.h"
#include "details/details_json.h"
#include "details/details_text.h"

namespace {

using json_pool = rapidjson::MemoryPoolAllocator<details_json_memory>;
using json_value = rapidjson::GenericValue<rapidjson::UTF8<>, json_pool>;
using json_document = rapidjson::GenericDocument<rapidjson::UTF8<>, json_pool, details_json_memory>;
using json_reader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, details_json_memory>;

// Between the library's reader and its document: no line nests deeper, or makes more values, than ours do.
// NOLINTBEGIN(readability-identifier-naming): the names that the library looks for
class bounded_values {
 public:
  explicit bounded_values(json_document& document) noexcept : document_(document) {}
  bool Null() { return counted() && document_.Null(); }
  bool Bool(bool value) { return counted() && document_.Bool(value); }
  bool Int(int value) { return counted() && document_.Int(value); }
  bool Uint(unsigned value) { return counted() && document_.Uint(value); }
  bool Int64(std::int64_t value) { return counted() && document_.Int64(value); }
  bool Uint64(std::uint64_t value) { return counted() && document_.Uint64(value); }
  bool Double(double value) { return counted() && document_.Double(value); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType size, bool copy) {
    return counted() && document_.String(text, size, copy);
  }
  bool Key(const char* text, rapidjson::SizeType size, bool copy) {
    return counted() && document_.Key(text, size, copy);
  }
  bool StartObject() { return deeper() && document_.StartObject(); }
  bool EndObject(rapidjson::SizeType count) { return --depth_ >= 0 && document_.EndObject(count); }
  bool StartArray() { return deeper() && document_.StartArray(); }
  bool EndArray(rapidjson::SizeType count) { return --depth_ >= 0 && document_.EndArray(count); }

 private:
  bool counted() noexcept { return ++values_ <= details_most_values; }
  bool deeper() noexcept { return ++depth_ <= details_deepest && counted(); }
  json_document& document_;
  std::size_t values_ = 0;
  int depth_ = 0;
};
// NOLINTEND(readability-identifier-naming)

// Fills a record from an object of the document; the first fault ends it.
class record_reader {
 public:
  explicit record_reader(std::string& problem) noexcept : problem_(problem) {}

  template <class Record>
  bool read(const json_value& object, Record& record) {
    const json_value* const above = object_;
    const auto above_at = at_;
    object_ = &object;
    at_ = object.MemberBegin();
    details_fields(*this, record);
    object_ = above;
    at_ = above_at;
    return good_;
  }

  void needed(std::string_view name, std::string& out) { take_text(name, must_have(name), out); }
  void text(std::string_view name, std::string& out) { take_text(name, find(name), out); }

  void bytes(std::string_view name, std::string& out) {
    const json_value* const value = find(name);
    if (value == nullptr) return;
    const bool decoded = value->IsString() && details_base64_decode(text_of(*value), out);
    if (!decoded) fault(name, "is no base64");
  }

  void number(std::string_view name, std::uint64_t& out) {
    const json_value* const value = must_have(name);
    if (value == nullptr) return;
    if (!value->IsUint64()) return fault(name, "is no number");
    out = value->GetUint64();
  }

  void decimal(std::string_view name, std::uint64_t& out) {
    const json_value* const value = find(name);
    if (value == nullptr) return;
    if (!value->IsString()) return fault(name, "is no text");
    const std::string_view digits = text_of(*value);
    const auto [end, code] = std::from_chars(digits.data(), digits.data() + digits.size(), out);
    if (code != std::errc() || end != digits.data() + digits.size()) fault(name, "is no number");
  }

  void flag(std::string_view name, bool& out) { take_flag(name, must_have(name), out); }
  void flag(std::string_view name, std::optional<bool>& out) {
    const json_value* const value = find(name);
    if (value != nullptr) take_flag(name, value, out.emplace());
  }
  void complete(std::string_view name, bool& out) { flag(name, out); }

  void kind(std::string_view name, details_kind& out) {
    std::string kind;
    needed(name, kind);
    if (!good_) return;
    const auto* const found = std::find(std::begin(details_kind_names), std::end(details_kind_names), kind);
    if (found == std::end(details_kind_names)) return fault(name, "is no kind of file");
    out = static_cast<details_kind>(found - std::begin(details_kind_names));
  }

  template <class Record>
  void object(std::string_view name, Record& out) {
    take_object(name, must_have(name), out);
  }
  template <class Record>
  void object(std::string_view name, std::optional<Record>& out) {
    const json_value* const value = find(name);
    if (value != nullptr) take_object(name, value, out.emplace());
  }

  template <class Element>
  void list(std::string_view name, std::vector<Element>& out) {
    const json_value* const value = find(name);
    if (value == nullptr) return;
    if (!value->IsArray()) return fault(name, "is no list");
    out.reserve(value->Size());
    for (auto element = value->Begin(); element != value->End() && good_; ++element) {
      take_element(name, *element, out.emplace_back());
    }
  }
  void problems(std::string_view name, std::vector<details_problem>& out) { list(name, out); }

 private:
  static std::string_view text_of(const json_value& value) { return {value.GetString(), value.GetStringLength()}; }

  // Keys come in our order as a rule: looked for from behind the one that was found last.
  const json_value* find(std::string_view name) {
    if (!good_) return nullptr;
    const auto begin = object_->MemberBegin();
    const auto end = object_->MemberEnd();
    auto at = at_;
    for (rapidjson::SizeType left = object_->MemberCount(); left > 0; --left, ++at) {
      if (at == end) at = begin;
      if (text_of(at->name) != name) continue;
      at_ = at + 1;
      return &at->value;
    }
    return nullptr;
  }

  const json_value* must_have(std::string_view name) {
    const json_value* const value = find(name);
    if (value == nullptr && good_) fault(name, "is missing");
    return value;
  }

  void take_text(std::string_view name, const json_value* value, std::string& out) {
    if (value == nullptr) return;
    if (!value->IsString()) return fault(name, "is no text");
    out = text_of(*value);
  }
  void take_flag(std::string_view name, const json_value* value, bool& out) {
    if (value == nullptr) return;
    if (!value->IsBool()) return fault(name, "is neither true nor false");
    out = value->GetBool();
  }
  template <class Record>
  void take_object(std::string_view name, const json_value* value, Record& out) {
    if (value == nullptr) return;
    if (!value->IsObject()) return fault(name, "is no object");
    (void)read(*value, out);
  }
  void take_element(std::string_view name, const json_value& value, std::string& out) { take_text(name, &value, out); }
  template <class Record>
  void take_element(std::string_view name, const json_value& value, Record& out) {
    take_object(name, &value, out);
  }

  void fault(std::string_view name, const char* what) {
    good_ = false;
    problem_ = '"' + std::string(name) + "\" " + what;
  }

  const json_value* object_ = nullptr;
  json_value::ConstMemberIterator at_;
  bool good_ = true;
  std::string& problem_;
};

}  // namespace

class details_parser::state {
 public:
  result parse(char* text, std::size_t length, details_line& line) {
    // Line after line the values take the same block; a line of more gets more for itself.
    json_pool pool(block_, sizeof(block_));
    json_document document(&pool, stack_size, &memory_);
    return document_of(text, length, document) ? record_of(document, line) : result::bad;
  }
  std::string problem;

 private:
  static constexpr std::size_t stack_size = 1024;

  bool document_of(char* text, std::size_t length, json_document& document) {
    if (std::memchr(text, 0, length) != nullptr) return fault("it holds a zero byte");
    text[length] = 0;
    rapidjson::GenericInsituStringStream<rapidjson::UTF8<>> stream(text);
    rapidjson::ParseResult parsed;
    const auto generate = [&](json_document& values) {
      bounded_values bounded(values);
      constexpr unsigned flags =
          rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
      json_reader reader(&memory_);
      parsed = reader.Parse<flags>(stream, bounded);
      return !parsed.IsError();
    };
    document.Populate(generate);
    if (!parsed.IsError()) return document.IsObject() || fault("it is no object");
    if (parsed.Code() == rapidjson::kParseErrorTermination) return fault("it nests too deep or has too many values");
    return fault(rapidjson::GetParseError_En(parsed.Code()));
  }

  result record_of(const json_document& document, details_line& line) {
    const auto type = document.FindMember("type");
    if (type == document.MemberEnd() || !type->value.IsString()) {
      problem = "\"type\" is missing";
      return result::bad;
    }
    const std::string_view name(type->value.GetString(), type->value.GetStringLength());
    if (name == details_type<details_file>) return read<details_file>(document, line);
    if (name == details_type<details_certificate>) return read<details_certificate>(document, line);
    if (name == details_type<details_members>) return read<details_members>(document, line);
    if (name == details_type<details_end>) return read<details_end>(document, line);
    if (name != details_type<details_header>) return result::unknown;
    const auto format = document.FindMember("format");
    if (format == document.MemberEnd() || !format->value.IsString() || format->value.GetString() != DETAILS_FORMAT) {
      problem = "\"format\" is another";
      return result::bad;
    }
    return read<details_header>(document, line);
  }

  template <class Record>
  result read(const json_document& document, details_line& line) {
    return record_reader(problem).read(document, line.emplace<Record>()) ? result::good : result::bad;
  }

  bool fault(const char* what) {
    problem = what;
    return false;
  }

  details_json_memory memory_;
  alignas(std::max_align_t) char block_[65536];
};

details_parser::details_parser() : state_(std::make_unique<state>()) {}
details_parser::~details_parser() = default;

details_parser::result details_parser::parse(char* text, std::size_t length, details_line& line) {
  return state_->parse(text, length, line);
}

const char* details_parser::problem() const noexcept { return state_->problem.c_str(); }
