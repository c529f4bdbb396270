#include "utils/report/report_merge_details.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <queue>
#include <unordered_set>
#include <utility>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "details/details_reader.h"
#include "details/details_writer.h"
#include "utils/report/report_text.h"

namespace {

std::u16string detailsIn(const std::u16string& folder) { return qpath_join(folder, qstr_to_wide(DETAILS_FILE_NAME)); }

// What a line is, by its beginning: the writer's keys have one order. The rest is spliced as it stands, and hostile
// input to whoever reads it, as before.
struct Line {
  enum class Kind : std::uint8_t { header, certificate, members, file, end, damaged } kind = Kind::damaged;
  std::string_view text;  // with its line feed
  std::uint64_t ordinal = 0;
  CertificateName certificate{};  // SHA-256 of its DER

  explicit Line(std::string_view bytes) noexcept : text(bytes) {
    if (!bytes.ends_with("}\n")) return;
    if (takes(bytes, R"({"type":"file","ordinal":)")) {
      const auto [end, failure] = std::from_chars(bytes.data(), bytes.data() + bytes.size(), ordinal);
      if (failure == std::errc() && *end == ',') kind = Kind::file;
    } else if (takes(bytes, R"({"type":"certificate","sha256":")")) {
      if (hexToBytes(bytes.substr(0, 64), certificate)) kind = Kind::certificate;
    } else if (takes(bytes, R"({"type":"members",)")) {
      kind = Kind::members;
    } else if (takes(bytes, R"({"type":"header",)")) {
      kind = Kind::header;
    } else if (takes(bytes, R"({"type":"end",)")) {
      kind = Kind::end;
    }
  }

 private:
  static bool takes(std::string_view& bytes, std::string_view wanted) noexcept {
    if (!bytes.starts_with(wanted)) return false;
    bytes.remove_prefix(wanted.size());
    return true;
  }
};

// A file's lines, one at a time.
class Lines {
 public:
  [[nodiscard]] bool open(const std::u16string& path) {
    return qfile_open(file_.out(), path.c_str(), QFILE_READ | QFILE_NO_FOLLOW) == QERR_OK;
  }

  // Valid until the next call; damaged at the end of the file and where it cannot be read.
  [[nodiscard]] Line next() {
    for (std::size_t looked = 0;;) {
      const std::string_view rest = std::string_view(buffer_.data(), end_).substr(at_);
      const std::size_t found = rest.find('\n', looked);
      if (found != std::string_view::npos) {
        at_ += found + 1;
        return Line(rest.substr(0, found + 1));
      }
      looked = rest.size();
      if (looked >= DETAILS_LARGEST_LINE || !more()) return Line({});
    }
  }

 private:
  bool more() {
    constexpr std::size_t piece = std::size_t{1} << 18U;
    if (at_ != 0) std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
    end_ -= std::exchange(at_, 0);
    if (buffer_.size() - end_ < piece / 2) buffer_.resize(std::max(piece, buffer_.size() * 2));
    std::uint32_t done = 0;
    const auto room = static_cast<std::uint32_t>(buffer_.size() - end_);
    if (qfile_read(file_.get(), buffer_.data() + end_, room, &done) != QERR_OK) return false;
    end_ += done;
    return done != 0;
  }

  QfileOwner file_;
  std::vector<char> buffer_;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
};

// One part. What belongs to a file stands before its line, and can be large: one reader goes ahead to find the next
// file's ordinal, the other follows and copies.
class Part {
 public:
  enum class Found : std::uint8_t { file, end, damaged };

  Found begin(const std::u16string& path) {
    if (!ahead_.open(path) || !behind_.open(path) || ahead_.next().kind != Line::Kind::header) return Found::damaged;
    (void)behind_.next();
    return advance();
  }

  Found advance() {
    for (;;) {
      const Line line = ahead_.next();
      switch (line.kind) {
        case Line::Kind::file:
          if (line.ordinal < least_) return Found::damaged;
          ordinal_ = line.ordinal;
          least_ = ordinal_ + 1;
          return Found::file;
        case Line::Kind::end:
          return Found::end;
        case Line::Kind::certificate:
        case Line::Kind::members:
          break;
        default:
          return Found::damaged;
      }
    }
  }

  // Calls `put` with the lines up to the file that was found, its own last.
  template <class Put>
  bool copy(Put put) {
    for (;;) {
      const Line line = behind_.next();
      if (line.kind == Line::Kind::damaged || line.kind == Line::Kind::end) return false;
      put(line);
      if (line.kind == Line::Kind::file) return true;
    }
  }

  [[nodiscard]] std::uint64_t ordinal() const noexcept { return ordinal_; }

 private:
  Lines ahead_;
  Lines behind_;
  std::uint64_t ordinal_ = 0;
  std::uint64_t least_ = 0;
};

struct NameHash {
  std::size_t operator()(const CertificateName& name) const noexcept {
    std::size_t hash = 0;  // a name is a digest already
    std::memcpy(&hash, name.data(), sizeof(hash));
    return hash;
  }
};

bool isSameScan(const details_header& one, const details_header& other) {
  return one.version == other.version && one.reading == other.reading && one.program == other.program &&
         one.system == other.system && one.request.path == other.request.path &&
         one.request.path_bytes == other.request.path_bytes && one.request.share == other.request.share &&
         one.request.all_certificates == other.request.all_certificates && one.request.digests == other.request.digests;
}

template <class Record>
std::string lineOf(details_writer& writer, const Record& record) {
  std::string_view line;
  if (writer.write(record, line) != QERR_OK) throw std::bad_alloc();
  return std::string(line);
}

}  // namespace

bool MergedDetails::prepare(const std::function<std::string_view(std::size_t)>& reportOf) {
  const bool any = std::any_of(folders_.begin(), folders_.end(),
                               [](const std::u16string& folder) { return qfile_exists(detailsIn(folder).c_str()); });
  for (std::size_t i = 0; any && good_ && i < folders_.size(); ++i) good_ = open(i, reportOf(i));
  header_.request.part.clear();
  return any && good_;
}

bool MergedDetails::open(std::size_t folder, std::string_view report) {
  details_reader reader;
  details_header header;
  details_end end;
  const std::u16string path = detailsIn(folders_[folder]);
  if (!qfile_exists(path.c_str())) return refuse(folder, u"missing");
  if (reader.open(path.c_str(), header) != QERR_OK || reader.read_end(end) != QERR_OK)
    return refuse(folder, u"damaged");
  if (end.info_sha256 != report) return refuse(folder, u"not of the report beside it");
  if (std::exchange(hasHeader_, true) && !isSameScan(header, header_)) return refuse(folder, u"of another scan");
  if (folder == 0 || header.started < header_.started) header_ = header;
  end_.ended = std::max(end_.ended, end.ended);
  end_.files += end.files;
  end_.records += end.records;
  end_.certificates += end.certificates;
  end_.left_out_directories += end.left_out_directories;
  end_.left_out_files += end.left_out_files;
  end_.ended_early = end_.ended_early || end.ended_early;
  return true;
}

bool MergedDetails::write(ReportOutput& out, const std::string& report) {
  using Next = std::pair<std::uint64_t, std::size_t>;
  details_writer writer;
  std::priority_queue<Next, std::vector<Next>, std::greater<>> waiting;
  std::vector<std::unique_ptr<Part>> parts;
  std::unordered_set<CertificateName, NameHash> written;
  const auto keep = [&](std::size_t folder, Part::Found found) {
    if (found == Part::Found::file) waiting.emplace(parts[folder]->ordinal(), folder);
    return found != Part::Found::damaged || refuse(folder, u"damaged");
  };
  out.write(lineOf(writer, header_));
  for (std::size_t i = 0; i < folders_.size(); ++i) {
    parts.push_back(std::make_unique<Part>());
    if (!keep(i, parts[i]->begin(detailsIn(folders_[i])))) return false;
  }
  while (!waiting.empty()) {
    const std::size_t folder = waiting.top().second;
    waiting.pop();
    const bool copied = parts[folder]->copy([&](const Line& line) {
      if (line.kind == Line::Kind::certificate && !written.insert(line.certificate).second) return;
      out.write(line.text);
    });
    if (!keep(folder, copied ? parts[folder]->advance() : Part::Found::damaged)) return false;
  }
  end_.info_sha256 = report;
  out.write(lineOf(writer, end_));
  return true;
}

bool MergedDetails::refuse(std::size_t folder, const char16_t* why) {
  warnings_.tell(detailsIn(folders_[folder]) + u": " + why + u": no details are merged");
  good_ = false;
  return false;
}
