#include "details/details_reader.h"

#include <algorithm>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "details/details_parser.h"

namespace {

constexpr std::size_t piece = 262144;

}  // namespace

// The file in pieces, cut into lines.
class details_reader::state {
 public:
  qerr_t open(const qchar* path, details_header& header) {
    qerr_t code = qfile_open(file_.out(), path, QFILE_READ);
    if (code != QERR_OK) return code;
    details_line line;
    code = next(line);
    if (code == QERR_END || code == QERR_CORRUPTED) return QERR_INVALID;
    if (code != QERR_OK) return code;
    auto* const found = std::get_if<details_header>(&line);
    if (found == nullptr) return refuse(QERR_INVALID, "the file does not begin with its header");
    if (found->version != DETAILS_VERSION) return refuse(QERR_INVALID, "another version of the format");
    header = std::move(*found);
    return QERR_OK;
  }

  qerr_t next(details_line& line) {
    for (;;) {
      if (ended_ && !at_end()) return refuse(QERR_CORRUPTED, "more lines behind the last");
      if (ended_) return QERR_END;
      std::size_t length = 0;
      const qerr_t code = find_line(length);
      if (code != QERR_OK) return code;
      offset_ = file_offset_ + begin_;
      ++number_;
      char* const text = data_.data() + begin_;
      begin_ += length + 1;
      switch (parser_.parse(text, length, line)) {
        case details_parser::result::unknown:
          continue;
        case details_parser::result::bad:
          return refuse(QERR_CORRUPTED, parser_.problem());
        case details_parser::result::good:
          break;
      }
      if (std::holds_alternative<details_header>(line) != (offset_ == 0)) {
        return refuse(QERR_CORRUPTED, "the header is not the first line");
      }
      ended_ = std::holds_alternative<details_end>(line);
      return QERR_OK;
    }
  }

  qerr_t move_to(std::uint64_t offset) {
    const qerr_t code = qfile_seek(file_.get(), static_cast<std::int64_t>(offset), QFILE_FROM_START, nullptr);
    if (code != QERR_OK) return code;
    data_.clear();
    begin_ = 0;
    file_offset_ = offset;
    ended_ = exhausted_ = false;
    counted_ = false;
    return QERR_OK;
  }

  qerr_t read_end(details_end& end) {
    const std::uint64_t here = file_offset_ + begin_;
    const bool was_ended = ended_;
    const bool was_counted = counted_;
    std::string tail;
    qerr_t code = read_tail(tail);
    if (code == QERR_OK) code = move_to(here);
    ended_ = was_ended;
    counted_ = was_counted;
    if (code != QERR_OK) return code;
    return parse_end(std::move(tail), end);
  }

  [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }
  [[nodiscard]] const char* problem() const noexcept { return problem_.c_str(); }

 private:
  // One more piece of the file behind what is there.
  qerr_t fill() {
    data_.erase(0, begin_);
    file_offset_ += begin_;
    begin_ = 0;
    const std::size_t had = data_.size();
    data_.resize(had + piece);
    std::uint32_t done = 0;
    const qerr_t code = qfile_read(file_.get(), data_.data() + had, piece, &done);
    data_.resize(had + (code == QERR_OK ? std::min<std::size_t>(done, piece) : 0));
    exhausted_ = code == QERR_OK && done == 0;
    return code;
  }

  // The last line with its line feed, and some of what is before it. As our writer has it, it is short.
  qerr_t read_tail(std::string& tail) {
    std::uint64_t size = 0;
    qerr_t code = qfile_size(file_.get(), &size);
    for (const std::uint64_t most : {std::uint64_t{4096}, std::uint64_t{DETAILS_LARGEST_LINE} + 1}) {
      if (code == QERR_OK) code = move_to(size - std::min(size, most));
      while (code == QERR_OK && !exhausted_ && data_.size() <= most) code = fill();
      if (code != QERR_OK) return code;
      tail = std::move(data_);
      if (tail.find('\n') + 1 < tail.size()) break;
    }
    return QERR_OK;
  }

  // The bytes up to the next line feed.
  qerr_t find_line(std::size_t& length) {
    std::size_t looked = 0;
    for (;;) {
      const std::size_t end = data_.find('\n', begin_ + looked);
      looked = data_.size() - begin_;
      if (std::min(end, data_.size()) - begin_ >= DETAILS_LARGEST_LINE) return too_long();
      if (end != data_.npos) {
        length = end - begin_;
        return QERR_OK;
      }
      if (exhausted_) return refuse(QERR_CORRUPTED, "the file ends before its last line");
      const qerr_t code = fill();
      if (code != QERR_OK) return code;
    }
  }

  qerr_t too_long() {
    offset_ = file_offset_ + begin_;
    ++number_;
    return refuse(QERR_CORRUPTED, "the line is too long");
  }

  bool at_end() {
    if (begin_ < data_.size()) return false;
    return exhausted_ || (fill() == QERR_OK && exhausted_);
  }

  qerr_t parse_end(std::string tail, details_end& end) {
    details_line line;
    if (!tail.ends_with('\n')) return refuse_file("the file ends before its last line");
    tail.pop_back();
    const std::size_t before = tail.rfind('\n');
    const std::size_t start = before == tail.npos ? 0 : before + 1;
    const auto parsed = parser_.parse(tail.data() + start, tail.size() - start, line);
    auto* const found = parsed == details_parser::result::good ? std::get_if<details_end>(&line) : nullptr;
    if (found == nullptr) return refuse_file("the file ends before its last line");
    end = std::move(*found);
    return QERR_OK;
  }

  qerr_t refuse_file(const char* text) {
    problem_ = text;
    return QERR_CORRUPTED;
  }

  qerr_t refuse(qerr_t code, const std::string& text) {
    problem_ = counted_ ? "line " + std::to_string(number_) : "offset " + std::to_string(offset_);
    problem_ += ": " + text;
    return code;
  }

  QfileOwner file_;
  std::string data_;               // of the file, from file_offset_ on
  std::uint64_t file_offset_ = 0;  // where data_ begins
  std::size_t begin_ = 0;          // in data_: the next line
  std::uint64_t offset_ = 0;       // of the line that came last
  std::uint64_t number_ = 0;
  bool counted_ = true;     // number_ is that of a line
  bool exhausted_ = false;  // nothing of the file is left to read
  bool ended_ = false;      // the end's line has come
  details_parser parser_;
  std::string problem_;
};

details_reader::details_reader() noexcept = default;
details_reader::~details_reader() = default;

qerr_t details_reader::open(const qchar* path, details_header& header) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  state_.reset();
  state_ = std::make_unique<state>();
  return state_->open(path, header);
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t details_reader::next(details_line& line) noexcept try {
  return state_ ? state_->next(line) : QERR_NOT_INITIALIZED;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t details_reader::read_end(details_end& end) noexcept try {
  return state_ ? state_->read_end(end) : QERR_NOT_INITIALIZED;
} catch (...) {
  return QERR_LOW_MEMORY;
}

std::uint64_t details_reader::offset() const noexcept { return state_ ? state_->offset() : 0; }

qerr_t details_reader::next_at(std::uint64_t offset, details_line& line) noexcept try {
  if (!state_) return QERR_NOT_INITIALIZED;
  const qerr_t code = state_->move_to(offset);
  return code == QERR_OK ? state_->next(line) : code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

const char* details_reader::problem() const noexcept { return state_ ? state_->problem() : ""; }
