// Several scans as one.
#include <functional>
#include <optional>
#include <queue>
#include <set>
#include <utility>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_merge_certificates.h"
#include "utils/report/report_merge_details.h"
#include "utils/report/report_order.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_pieces.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"
#include "utils/report/report_warnings.h"

namespace {

using Folders = std::vector<std::u16string>;

std::u16string number(std::uint64_t value) { return qstr_to_wide(std::to_string(value)); }

std::u16string reportIn(const std::u16string& folder) { return qpath_join(folder, u"info.xml"); }

void appendRecord(std::string& out, const ReportRecord& record) {
  out += "    <Executable>\n";
  for (std::size_t i = 0; i < REPORT_FIELDS.size(); ++i) {
    if (!record.present[i]) continue;
    out.append("        <").append(REPORT_FIELDS[i]).append(">");
    appendXml(out, record.texts[i]);
    out.append("</").append(REPORT_FIELDS[i]).append(">\n");
  }
  out += "        <CertificatesExtracted count=\"" + std::to_string(record.certificates.size()) + '"';
  if (record.certificates.empty()) {
    out += "/>\n    </Executable>\n";
    return;
  }
  out += ">\n";
  for (const CertificateName& name : record.certificates) {
    out += "            <Certificate name=\"" + bytesToHex(name) + "\"/>\n";
  }
  out += "        </CertificatesExtracted>\n    </Executable>\n";
}

// A folder's records are not those that its order is of.
struct Misfit {
  std::size_t folder;
};

void tellOrder(const std::u16string& folder, const char16_t* what, ReportWarnings& warnings) {
  warnings.tell(qpath_join(folder, u"order") + u": " + what + u": ignored");
}

// The order of a folder's records in the walk of which it is a part; true when it has one. Whether it is this report's
// shows when the report has been read.
bool readOrder(const std::u16string& folder, ReportOrder& order, ReportWarnings& warnings) {
  constexpr std::uint64_t room = 4096;  // a record takes more bytes in the report than in the order
  std::uint64_t size = 0;
  (void)qfile_size_by_name(reportIn(folder).c_str(), &size);
  const ReportOrder::State state = order.read(folder, size + room);
  if (state == ReportOrder::State::damaged) tellOrder(folder, u"damaged", warnings);
  return state == ReportOrder::State::good;
}

// The folders that are parts of one walk, with their orders.
class Parts {
 public:
  // Takes those of `misfits` for none.
  Parts(const Folders& folders, const std::set<std::size_t>& misfits, ReportWarnings& warnings)
      : orders_(folders.size()), isPart_(folders.size()) {
    for (std::size_t i = 0; i < folders.size(); ++i) {
      isPart_[i] = !misfits.contains(i) && readOrder(folders[i], orders_[i], warnings);
      if (isPart_[i]) last_ = &orders_[i];
      areAll_ = areAll_ && isPart_[i];
    }
  }
  [[nodiscard]] bool contain(std::size_t folder) const noexcept { return isPart_[folder]; }
  [[nodiscard]] ReportOrder& orderOf(std::size_t folder) noexcept { return orders_[folder]; }
  [[nodiscard]] bool areAll() const noexcept { return areAll_; }

  // Whether together they are one scan; if not, lines say why.
  [[nodiscard]] bool fit(ReportWarnings& warnings) const {
    if (last_ == nullptr) return true;
    std::vector<char> found(last_->parts());
    bool same = true;
    bool good = true;
    for (std::size_t i = 0; i < orders_.size(); ++i) {
      if (!isPart_[i]) continue;
      same = same && orders_[i].parts() == last_->parts() && orders_[i].sawTheSame(*last_);
      const std::size_t part = orders_[i].part() - 1;
      if (part < found.size() && std::exchange(found[part], 1) != 0) {
        warnings.tell(u"part " + number(part + 1) + u" is there twice");
        good = false;
      }
    }
    if (!same) warnings.tell(u"the parts did not see the same files: the repository changed between their scans");
    for (std::size_t part = 0; areAll_ && part < found.size(); ++part) {
      if (found[part] != 0) continue;
      warnings.tell(u"part " + number(part + 1) + u" of " + number(found.size()) + u" is missing");
      good = false;
    }
    return same && good;
  }

 private:
  std::vector<ReportOrder> orders_;
  std::vector<bool> isPart_;
  const ReportOrder* last_ = nullptr;
  bool areAll_ = true;
};

class Merge {
 public:
  Merge(const std::u16string& target, const Folders& folders, const std::set<std::size_t>& misfits,
        ReportWarnings& warnings)
      : target_(target),
        folders_(folders),
        warnings_(warnings),
        parts_(folders, misfits, warnings),
        certificates_(folders, warnings),
        out_(reportIn(target)) {}

  // False when parts do not fit together. Throws Misfit.
  bool run() {
    const bool fits = parts_.fit(warnings_);
    MergedDetails details(folders_, warnings_);
    const bool hasDetails =
        parts_.areAll() && details.prepare([&](std::size_t folder) { return parts_.orderOf(folder).report(); });
    if (hasDetails) out_.wantDigest();
    // Parts of one walk have different files.
    checksPaths_ = !fits || !parts_.areAll();
    out_.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ExecutableData");
    weaveParts();
    for (std::uint32_t i = 0; i < folders_.size(); ++i) {
      if (!parts_.contain(i)) append(i);
    }
    if (omissions_.any()) open() += "    <!-- incomplete: " + omissions_.text() + " -->\n";
    out_.write(isOpen_ ? "</ExecutableData>\n" : "/>\n");
    // Everything is read, and the new report on the device, before the first certificate is written.
    out_.flush();
    if (hasDetails) writeDetails(details);
    certificates_.copyTo(target_);
    out_.finish();
    if (details_) details_->finish();
    return fits && details.areGood();
  }

 private:
  void writeDetails(MergedDetails& details) {
    details_.emplace(qpath_join(target_, u"details.jsonl"));
    if (!details.write(*details_, out_.digest())) details_.reset();
    if (details_) details_->flush();
  }

  // By ordinal, then by folder.
  void weaveParts() {
    using Next = std::pair<std::uint64_t, std::uint32_t>;
    std::priority_queue<Next, std::vector<Next>, std::greater<>> waiting;
    std::vector<std::unique_ptr<ReportPieces>> pieces(folders_.size());
    const auto advance = [&](std::uint32_t folder) {
      ReportOrder& order = parts_.orderOf(folder);
      const ReportPieces::Found found = pieces[folder]->next();
      std::uint64_t ordinal = 0;
      if (found == ReportPieces::Found::odd || order.next(ordinal) != (found == ReportPieces::Found::record)) {
        throw Misfit{folder};
      }
      if (found == ReportPieces::Found::record) {
        waiting.emplace(ordinal, folder);
      } else {
        if (pieces[folder]->digest() != order.report()) throw Misfit{folder};
        omissions_.add(pieces[folder]->omissions());
      }
    };
    for (std::uint32_t i = 0; i < folders_.size(); ++i) {
      if (!parts_.contain(i)) continue;
      pieces[i] = std::make_unique<ReportPieces>(reportIn(folders_[i]), true);
      advance(i);
    }
    while (!waiting.empty()) {
      const std::uint32_t folder = waiting.top().second;
      waiting.pop();
      take(folder, *pieces[folder]);
      advance(folder);
    }
  }

  // All records of one folder. Those from the first on that no scan wrote in this form come from an XML parser.
  void append(std::uint32_t folder) {
    ReportPieces pieces(reportIn(folders_[folder]), false);
    std::uint64_t taken = 0;
    ReportPieces::Found found = pieces.next();
    for (; found == ReportPieces::Found::record; found = pieces.next()) {
      take(folder, pieces);
      ++taken;
    }
    if (found == ReportPieces::Found::end) {
      omissions_.add(pieces.omissions());
      return;
    }
    ReportReader reader(folders_[folder]);
    reader.read([&](const ReportRecord& record, std::uint64_t) {
      if (taken != 0) {
        --taken;
        return;
      }
      checkPath(folder, record.name());
      appendRecord(open(), record);
      out_.spill();
      certificates_.note(folder, record.certificates);
    });
    omissions_.add(reader.omissions());
  }

  void take(std::uint32_t folder, const ReportPieces& pieces) {
    if (checksPaths_) checkPath(folder, unescaped(pieces.escapedName()));
    open() += pieces.bytes();
    out_.spill();
    certificates_.note(folder, pieces.certificates());
  }

  // U+FFFD stands for any character or byte that XML cannot hold: equal paths with it can be two files.
  void checkPath(std::uint32_t folder, const std::string& path) {
    if (path.find("\xEF\xBF\xBD") != std::string::npos) return;
    std::uint32_t& found = paths_.valueOf(path);
    if (found != 0 && found != folder + 1) {
      throw ReportError(qstr_to_wide(path) + u": stands in " + folders_[found - 1] + u" and in " + folders_[folder]);
    }
    found = folder + 1;
  }

  // An element without content has no end tag.
  std::string& open() {
    if (!std::exchange(isOpen_, true)) out_.buffer() += ">\n";
    return out_.buffer();
  }

  const std::u16string& target_;
  const Folders& folders_;
  ReportWarnings& warnings_;
  Parts parts_;
  MergedCertificates certificates_;
  ReportPathSet paths_;
  ReportOmissions omissions_;
  ReportOutput out_;
  std::optional<ReportOutput> details_;
  bool checksPaths_ = true;
  bool isOpen_ = false;
};

bool mergeParts(const std::u16string& target, const Folders& folders) {
  ReportWarnings warnings;
  std::set<std::size_t> misfits;
  for (;;) {
    try {
      return Merge(target, folders, misfits, warnings).run();
    } catch (const Misfit& misfit) {  // once for each folder at most
      tellOrder(folders[misfit.folder], u"not of the report beside it", warnings);
      misfits.insert(misfit.folder);
    }
  }
}

}  // namespace

bool reportMerge(const std::u16string& target, const std::vector<std::u16string>& folders) {
  const bool isNew = !qfile_exists(target.c_str());
  if (isNew) {
    const qerr_t code = qfile_mkdir(target.c_str());
    if (code != QERR_OK) throw ReportError(target + u": " + qerr_get_string(code));
  }
  try {
    return mergeParts(target, folders);
  } catch (...) {
    if (isNew) (void)qfile_rmdir(target.c_str());  // stays when anything was written
    throw;
  }
}
