// Comparing two scans. Of each record only digests are kept; the texts of those that differ are read again.
#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

#include "common/qlib/qprintable.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_survey.h"
#include "utils/report/report_text.h"

namespace {

struct Line {
  TextDigest path{};
  TextDigest content{};     // of both digests of the file; zero when there are none
  std::uint64_t words = 0;  // of product information and signers
  std::uint64_t offset = 0;
  std::uint64_t details = 0;  // offset of its line there
};
using Lines = std::deque<Line>;  // grows without being copied

enum class Change : std::uint8_t { Added, Removed, Changed, Moved };
constexpr std::array<std::string_view, 4> change_names{"added", "removed", "changed", "moved"};

// Where a record is, and its line in the details.
struct Place {
  std::uint64_t offset = 0;
  std::uint64_t details = 0;
};

struct Difference {
  Change change = Change::Added;
  Place older;  // one of them is unused for what was added or removed
  Place newer;
};

// A signer by its identity: how many files it has signed in the older and in the newer scan, and a certificate of it.
struct Signer {
  std::array<std::uint32_t, 2> files{};
  std::string label;
  CertificateName certificate{};
  [[nodiscard]] bool came() const noexcept { return files[0] == 0; }
};
using Signers = std::map<std::string, Signer>;

// One of the two scans.
struct Side {
  Side(const std::u16string& folder, ReportWarnings& warnings, Seconds now) : survey(folder, warnings, now) {}
  ReportSurvey survey;
  Lines lines;
};

std::string_view verdictText(const SurveyFile& file) {
  return REPORT_VERDICT_WORDS[static_cast<std::size_t>(file.verdict.kind)];
}

void readSide(Side& side, std::size_t which, Signers& signers) {
  side.survey.read([&](const SurveyFile& file) {
    const ReportRecord& record = *file.record;
    Line line;
    line.offset = file.offset;
    line.details = file.detailsOffset;
    line.path = digestOfText(record.name());
    const std::string digests = record[ReportField::Sha1] + record[ReportField::Sha256];
    if (!digests.empty()) line.content = digestOfText(digests);
    std::string words;
    for (const ReportField field :
         {ReportField::Company, ReportField::Installer, ReportField::Product, ReportField::Version}) {
      words.append(record[field]).append(1, '\0');
    }
    if (file.details != nullptr) words += verdictText(file);
    std::vector<CertificateBook::EntryPtr> entries = side.survey.signersOf(file);
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a->identity < b->identity; });
    for (const CertificateBook::EntryPtr& entry : entries) {
      Signer& signer = signers[entry->identity];
      if (++signer.files[which] == 1) {
        signer.label = entry->label;
        signer.certificate = entry->name;
      }
      words += entry->identity;
    }
    const TextDigest digest = digestOfText(words);
    std::memcpy(&line.words, digest.data(), sizeof(line.words));
    side.lines.push_back(line);
  });
}

// Pairs what is equal under `key` in two sequences that are sorted by it; the rest goes to `lone`.
template <class Key, class Pair, class Lone>
void join(const Lines& older, const Lines& newer, Key key, Pair&& pair, Lone&& lone) {
  auto one = older.begin();
  auto other = newer.begin();
  while (one != older.end() || other != newer.end()) {
    if (other == newer.end() || (one != older.end() && (*one).*key < (*other).*key)) {
      lone(*one++, Change::Removed);
    } else if (one == older.end() || (*other).*key < (*one).*key) {
      lone(*other++, Change::Added);
    } else {
      pair(*one++, *other++);
    }
  }
}

template <class Key>
void sortBy(Lines& lines, Key key) {
  std::sort(lines.begin(), lines.end(),
            [key](const Line& a, const Line& b) { return a.*key != b.*key ? a.*key < b.*key : a.offset < b.offset; });
}

Place placeOf(const Line& line) { return {line.offset, line.details}; }

// Takes the lines apart: what is left of them are the differences.
std::deque<Difference> compare(Lines& older, Lines& newer) {
  std::deque<Difference> differences;
  Lines removed;
  Lines added;
  sortBy(older, &Line::path);
  sortBy(newer, &Line::path);
  join(
      older, newer, &Line::path,
      [&](const Line& a, const Line& b) {
        if (a.content != b.content || a.words != b.words) {
          differences.push_back({Change::Changed, placeOf(a), placeOf(b)});
        }
      },
      [&](const Line& line, Change change) { (change == Change::Removed ? removed : added).push_back(line); });
  older = {};
  newer = {};
  sortBy(removed, &Line::content);
  sortBy(added, &Line::content);
  const auto lone = [&](const Line& line, Change change) {
    differences.push_back({change, change == Change::Removed ? placeOf(line) : Place(),
                           change == Change::Added ? placeOf(line) : Place()});
  };
  join(
      removed, added, &Line::content,
      [&](const Line& a, const Line& b) {
        if (a.content != TextDigest{}) {
          differences.push_back({Change::Moved, placeOf(a), placeOf(b)});
        } else {
          lone(a, Change::Removed);
          lone(b, Change::Added);
        }
      },
      lone);
  std::sort(differences.begin(), differences.end(), [](const Difference& a, const Difference& b) {
    return std::tie(a.change, a.newer.offset, a.older.offset) < std::tie(b.change, b.newer.offset, b.older.offset);
  });
  return differences;
}

// One difference with its texts.
struct Told {
  ReportRecord older;
  ReportRecord newer;
  std::string olderSigners;
  std::string newerSigners;
  std::string olderVerdict;  // empty without details
  std::string newerVerdict;
};

void tellSide(const Place& place, Side& side, ReportRecord& record, std::string& signers, std::string& verdict) {
  const SurveyFile file = side.survey.readAt(place.offset, place.details, record);
  signers = labelsOf(side.survey.signersOf(file));
  if (file.details != nullptr) verdict = verdictText(file);
}

Told tell(const Difference& difference, Side& older, Side& newer) {
  Told told;
  if (difference.change != Change::Added) {
    tellSide(difference.older, older, told.older, told.olderSigners, told.olderVerdict);
  }
  if (difference.change != Change::Removed) {
    tellSide(difference.newer, newer, told.newer, told.newerSigners, told.newerVerdict);
  }
  return told;
}

// What differs between two records of one path: "content, productVersion".
void differingFields(const Told& told,
                     const std::function<void(std::string_view, std::string_view, std::string_view)>& visit) {
  if (told.older[ReportField::Sha1] != told.newer[ReportField::Sha1] ||
      told.older[ReportField::Sha256] != told.newer[ReportField::Sha256]) {
    visit("content", {}, {});
  }
  for (const ReportField field :
       {ReportField::Company, ReportField::Product, ReportField::Version, ReportField::Installer}) {
    if (told.older[field] == told.newer[field]) continue;
    visit(REPORT_FIELDS[static_cast<std::size_t>(field)], told.older[field], told.newer[field]);
  }
  if (told.olderVerdict != told.newerVerdict) visit("verdict", told.olderVerdict, told.newerVerdict);
  if (told.olderSigners != told.newerSigners) {
    visit("signers", told.olderSigners, told.newerSigners);
  } else if (told.older.certificates != told.newer.certificates) {
    visit("certificates", {}, {});
  }
}

class Listing {
 public:
  virtual ~Listing() = default;
  virtual void difference(Change change, const Told& told) = 0;
  virtual void signer(const Signer& signer) = 0;  // is in one of the scans only
  virtual void end() = 0;
};

// For people; on a console in its own encoding.
class TextListing final : public Listing {
 public:
  explicit TextListing(const std::u16string& output) {
    if (!output.empty() && output != u"-") out_ = std::make_unique<ReportOutput>(output);
  }
  void difference(Change change, const Told& told) override {
    ++counts_[static_cast<std::size_t>(change)];
    std::string line(change_names[static_cast<std::size_t>(change)]);
    line.resize(9, ' ');
    line += change == Change::Added ? told.newer.name() : told.older.name();
    if (change == Change::Moved) line += " -> " + told.newer.name();
    if (change == Change::Changed) {
      const char* before = " (";
      differingFields(told, [&](std::string_view what, std::string_view from, std::string_view to) {
        line.append(before).append(what);
        if (!from.empty() || !to.empty()) {
          line.append(" ").append(from.empty() ? "none" : from).append(" -> ").append(to.empty() ? "none" : to);
        }
        before = ", ";
      });
      line += ')';
    }
    put(line);
  }
  void signer(const Signer& signer) override {
    ++signers_[signer.came() ? 1 : 0];
    const std::uint32_t files = signer.files[signer.came() ? 1 : 0];
    put(std::string(signer.came() ? "signer came  " : "signer went  ") + signer.label + " (certificate " +
        bytesToHex(signer.certificate).substr(0, 12) + ", " + std::to_string(files) +
        (files == 1 ? " file)" : " files)"));
  }
  void end() override {
    std::string line;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      line += std::to_string(counts_[i]) + ' ' + std::string(change_names[i]) + ", ";
    }
    put(line + "signers: " + std::to_string(signers_[1]) + " came, " + std::to_string(signers_[0]) + " went");
    if (out_) out_->finish();
  }

 private:
  void put(const std::string& line) const {
    const std::u16string shown = qprintable(qstr_to_wide(line));
    if (out_) {
      out_->write(qstr_to_utf8(shown) + '\n');
    } else if (qstr_console_printf(u"%s\n", shown) < 0) {
      throw ReportError(u"standard output: cannot be written");
    }
  }
  std::unique_ptr<ReportOutput> out_;
  std::array<std::size_t, change_names.size()> counts_{};
  std::array<std::size_t, 2> signers_{};
};

// For programs.
class CsvListing final : public Listing {
 public:
  explicit CsvListing(const std::u16string& output) : out_(output) {
    out_.write("change,path,old path,differs,old version,new version,old signers,new signers,files\r\n");
  }
  void difference(Change change, const Told& told) override {
    std::string differs;
    if (change == Change::Changed) {
      differingFields(told, [&](std::string_view what, std::string_view, std::string_view) {
        if (!differs.empty()) differs += "; ";
        differs += what;
      });
    }
    const bool removed = change == Change::Removed;
    row({change_names[static_cast<std::size_t>(change)], (removed ? told.older : told.newer).name(),
         change == Change::Moved ? told.older.name() : std::string(), differs, told.older[ReportField::Version],
         told.newer[ReportField::Version], told.olderSigners, told.newerSigners, "1"});
  }
  void signer(const Signer& signer) override {
    const bool came = signer.came();
    row({came ? "signer came" : "signer went", bytesToHex(signer.certificate), "", "", "", "",
         came ? std::string() : signer.label, came ? signer.label : std::string(),
         std::to_string(signer.files[came ? 1 : 0])});
  }
  void end() override { out_.finish(); }

 private:
  void row(const std::array<std::string_view, 9>& cells) {
    std::string& text = out_.buffer();
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (i > 0) text += ',';
      appendCsv(text, cells[i]);
    }
    text += "\r\n";
    out_.spill();
  }
  ReportOutput out_;
};

}  // namespace

bool reportDiff(const std::u16string& older, const std::u16string& newer, const std::u16string& output, bool csv,
                Seconds now) {
  ReportWarnings warnings;
  std::array<Side, 2> sides{Side(older, warnings, now), Side(newer, warnings, now)};
  // Of a scan with details more is known than of one without, which is no difference of the files.
  if (sides[0].survey.hasDetails() != sides[1].survey.hasDetails()) {
    for (Side& side : sides) side.survey.ignoreDetails();
  }
  Signers signers;
  for (std::size_t which = 0; which < sides.size(); ++which) {
    readSide(sides[which], which, signers);
    const ReportReader& reader = sides[which].survey.reader();
    if (reader.omissions().any()) warnings.tell(reader.incompleteText());
  }
  const std::deque<Difference> differences = compare(sides[0].lines, sides[1].lines);
  std::erase_if(signers, [](const auto& one) { return (one.second.files[0] == 0) == (one.second.files[1] == 0); });
  const bool differ = !differences.empty() || !signers.empty();
  // A file of an earlier comparison must not stay.
  if (!differ && (output.empty() || output == u"-")) return false;
  std::unique_ptr<Listing> listing;
  if (csv) {
    listing = std::make_unique<CsvListing>(output);
  } else {
    listing = std::make_unique<TextListing>(output);
  }
  for (const Difference& difference : differences) {
    listing->difference(difference.change, tell(difference, sides[0], sides[1]));
  }
  for (const auto& [identity, signer] : signers) listing->signer(signer);
  listing->end();
  return differ;
}
