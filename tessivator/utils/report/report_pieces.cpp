#include "utils/report/report_pieces.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "common/qlib/qerr.h"
#include "common/qlib/qutf8.h"
#include "utils/report/report_reader.h"

namespace {

constexpr std::size_t read_bytes = std::size_t{1} << 18U;
constexpr std::size_t largest_record = std::size_t{1} << 24U;  // bytes; an XML parser gets what is larger

struct Escape {
  std::string_view text;
  char character;
};
constexpr std::array<Escape, 3> escapes{{{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}}};

const Escape* escapeAt(std::string_view text) noexcept {
  const auto found =
      std::find_if(escapes.begin(), escapes.end(), [&](const Escape& e) { return text.starts_with(e.text); });
  return found == escapes.end() ? nullptr : &*found;
}

std::array<std::string, REPORT_FIELDS.size()> tags(std::string_view before, std::string_view behind) {
  std::array<std::string, REPORT_FIELDS.size()> all;
  for (std::size_t i = 0; i < all.size(); ++i) all[i].append(before).append(REPORT_FIELDS[i]).append(behind);
  return all;
}

// Whether eight bytes are printable ASCII that a report has without escape: all at once, for that is most of it.
bool arePlain(const char* text) noexcept {
  constexpr std::uint64_t ones = 0x0101010101010101U;
  constexpr std::uint64_t tops = 0x8080808080808080U;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, text, sizeof(bytes));
  const auto below = [&](std::uint64_t value, std::uint64_t least) { return (value - ones * least) & ~value & tops; };
  const auto has = [&](char character) { return below(bytes ^ (ones * static_cast<unsigned char>(character)), 1); };
  return ((bytes & tops) | below(bytes, 0x20) | has('<') | has('>') | has('&')) == 0;
}

// What each byte is worth as a hexadecimal digit.
constexpr std::uint8_t no_digit = 0x80;
constexpr auto hex_digits = [] {
  std::array<std::uint8_t, 256> all{};
  all.fill(no_digit);
  for (std::uint8_t i = 0; i < 16; ++i) all[static_cast<unsigned char>("0123456789abcdef"[i])] = i;
  return all;
}();

std::uint8_t digitOf(char character) noexcept { return hex_digits[static_cast<unsigned char>(character)]; }

bool isDigest(std::string_view text, std::size_t length) noexcept {
  unsigned digits = 0;
  for (const char character : text) digits |= digitOf(character);
  return text.empty() || (text.size() == length && digits < no_digit);
}

bool isValue(ReportField field, std::string_view text) noexcept {
  if (field == ReportField::Sha1) return isDigest(text, 40);
  if (field == ReportField::Sha256) return isDigest(text, 64);
  return field != ReportField::Installer || text.empty() || text == "yes" || text == "no";
}

}  // namespace

// Goes over what was read so far. Where that is too short to decide, `isShort` says so.
class ReportPieces::Cursor {
 public:
  Cursor(const char* begin, const char* end) noexcept : at_(begin), end_(end) {}

  [[nodiscard]] const char* at() const noexcept { return at_; }
  [[nodiscard]] bool isShort() const noexcept { return isShort_; }
  [[nodiscard]] bool isAtEnd() const noexcept { return at_ == end_; }

  bool take(std::string_view wanted) noexcept {
    const std::size_t have = std::min(wanted.size(), static_cast<std::size_t>(end_ - at_));
    if (have != 0 && std::memcmp(at_, wanted.data(), have) != 0) return false;
    if (have < wanted.size()) return lack();
    at_ += have;
    return true;
  }

  // A value, up to the tag that ends it.
  bool takeText(std::string_view& text) noexcept {
    const char* const begin = at_;
    std::size_t length = 0;  // without escapes
    for (;; ++length) {
      for (; end_ - at_ >= 8 && arePlain(at_); at_ += 8) length += 8;
      if (at_ == end_) return lack();
      const auto byte = static_cast<unsigned char>(*at_);
      if (byte == '<') {
        text = {begin, static_cast<std::size_t>(at_ - begin)};
        return length <= REPORT_MAX_TEXT;
      }
      if (byte == '&' || byte >= 0x80) {
        const char* const before = at_;
        if (!(byte == '&' ? takeEscape() : takeCharacter())) return false;
        if (byte >= 0x80) length += static_cast<std::size_t>(at_ - before) - 1;
      } else if (byte == '>' || (byte < 0x20 && byte != '\t' && byte != '\n')) {
        return false;
      } else {
        ++at_;
      }
    }
  }

  bool takeNumber(std::uint64_t& number) noexcept {
    const auto [end, failure] = std::from_chars(at_, end_, number);
    if (end == end_) return lack();
    at_ = end;
    return failure == std::errc();
  }

  bool takeName(CertificateName& name) noexcept {
    if (static_cast<std::size_t>(end_ - at_) < 2 * name.size()) return lack();
    unsigned digits = 0;
    for (std::uint8_t& byte : name) {
      const std::uint8_t high = digitOf(at_[0]);
      const std::uint8_t low = digitOf(at_[1]);
      digits |= high | low;
      byte = static_cast<std::uint8_t>(high << 4U | low);
      at_ += 2;
    }
    return digits < no_digit;
  }

  bool takeUpTo(std::string_view mark, std::size_t most, std::string_view& text) noexcept {
    const std::string_view rest(at_, std::min(most, static_cast<std::size_t>(end_ - at_)));
    const std::size_t found = rest.find(mark);
    if (found == std::string_view::npos) return rest.size() < most ? lack() : false;
    text = rest.substr(0, found);
    at_ += found + mark.size();
    return true;
  }

 private:
  bool lack() noexcept {
    isShort_ = true;
    return false;
  }

  bool takeEscape() noexcept {
    const std::string_view rest(at_, static_cast<std::size_t>(end_ - at_));
    const Escape* const found = escapeAt(rest);
    if (found == nullptr) return rest.size() < 5 ? lack() : false;
    at_ += found->text.size();
    return true;
  }

  bool takeCharacter() noexcept {
    constexpr std::size_t longest = 4;
    const std::string_view rest(at_, static_cast<std::size_t>(end_ - at_));
    const qutf8_step step = qutf8_next(rest);
    if (!step.valid) return rest.size() < longest ? lack() : false;
    at_ += step.length;
    return step.scalar != 0xFFFE && step.scalar != 0xFFFF;
  }

  const char* at_;
  const char* end_;
  bool isShort_ = false;
};

ReportPieces::ReportPieces(std::u16string path, bool digest) : path_(std::move(path)) {
  const qerr_t code = qfile_open(file_.out(), path_.c_str(), QFILE_READ);
  if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
  if (digest) digest_.emplace();
}

ReportPieces::Found ReportPieces::next() {
  for (;;) {
    if (ended_ && at_ != end_) return Found::odd;
    if (ended_ && atEnd_) return Found::end;
    if (!ended_) {
      Cursor cursor(buffer_.data() + at_, buffer_.data() + end_);
      const bool began = started_;
      const Found found = began ? record(cursor) : begin(cursor);
      if (found != Found::odd) {
        at_ = static_cast<std::size_t>(cursor.at() - buffer_.data());
        if (began && found == Found::record) return found;
        continue;
      }
      if (!cursor.isShort()) return Found::odd;
    }
    if (!more() && !ended_) return Found::odd;
  }
}

// Reads on, behind what is not used up yet. False when nothing comes.
bool ReportPieces::more() {
  if (atEnd_ || end_ - at_ >= largest_record) return false;
  if (at_ != 0) std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
  end_ -= at_;
  at_ = 0;
  if (buffer_.size() - end_ < read_bytes / 2) buffer_.resize(std::max(read_bytes, buffer_.size() * 2));
  std::uint32_t done = 0;
  const auto room = static_cast<std::uint32_t>(buffer_.size() - end_);
  const qerr_t code = qfile_read(file_.get(), buffer_.data() + end_, room, &done);
  if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
  if (digest_) digest_->add({buffer_.data() + end_, done});
  end_ += done;
  atEnd_ = done == 0;
  return !atEnd_;
}

ReportPieces::Found ReportPieces::begin(Cursor& cursor) {
  if (!cursor.take("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ExecutableData")) return Found::odd;
  ended_ = cursor.take("/>\n");
  started_ = ended_ || cursor.take(">\n");
  return started_ ? Found::record : Found::odd;
}

ReportPieces::Found ReportPieces::finish(Cursor& cursor) {
  constexpr std::size_t longest_comment = 256;
  if (std::string_view comment; cursor.take("    <!--")) {
    if (!cursor.takeUpTo("-->\n", longest_comment, comment) || comment.find("--") != std::string_view::npos) {
      return Found::odd;
    }
    omissions_.read(comment);
  }
  if (cursor.isShort() || !cursor.take("</ExecutableData>\n")) return Found::odd;
  ended_ = true;
  return Found::end;
}

ReportPieces::Found ReportPieces::record(Cursor& cursor) {
  const char* const begin = cursor.at();
  if (!cursor.take("    <Executable>\n")) return cursor.isShort() ? Found::odd : finish(cursor);
  if (!fields(cursor) || !list(cursor) || !cursor.take("    </Executable>\n")) return Found::odd;
  bytes_ = {begin, static_cast<std::size_t>(cursor.at() - begin)};
  return Found::record;
}

bool ReportPieces::fields(Cursor& cursor) {
  static const auto opening = tags("        <", ">");
  static const auto closing = tags("</", ">\n");
  for (std::size_t i = 0; i < opening.size(); ++i) {
    const auto field = static_cast<ReportField>(i);
    if (!cursor.take(opening[i])) {
      if (cursor.isShort() || field != ReportField::Sha256) return false;
      continue;
    }
    std::string_view text;
    if (!cursor.takeText(text) || !isValue(field, text) || !cursor.take(closing[i])) return false;
    if (field == ReportField::Name) name_ = text;
  }
  return true;
}

bool ReportPieces::list(Cursor& cursor) {
  certificates_.clear();
  std::uint64_t count = 0;
  if (!cursor.take("        <CertificatesExtracted count=\"") || !cursor.takeNumber(count)) return false;
  if (count == 0) return cursor.take("\"/>\n");
  if (count > REPORT_MAX_CERTIFICATES || !cursor.take("\">\n")) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    CertificateName name{};
    if (!cursor.take("            <Certificate name=\"") || !cursor.takeName(name) || !cursor.take("\"/>\n"))
      return false;
    certificates_.push_back(name);
  }
  return cursor.take("        </CertificatesExtracted>\n");
}

std::string unescaped(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const std::size_t next = std::min(text.find('&'), text.size());
    plain += text.substr(0, next);
    text.remove_prefix(next);
    const Escape* const found = escapeAt(text);
    if (found != nullptr) plain += found->character;
    text.remove_prefix(found != nullptr ? found->text.size() : std::min<std::size_t>(text.size(), 1));
  }
  return plain;
}
