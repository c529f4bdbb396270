// Comparing two scans. Of each record only digests are kept; the texts of those that differ are read again.
#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

#include "common/qlib/qstr.h"
#include "utils/report/report_certificate_book.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_reader.h"
#include "utils/report/report_text.h"

namespace {

struct Line {
  TextDigest path{};
  TextDigest content{};     // of both digests of the file; zero when there are none
  std::uint64_t words = 0;  // of product information and signers
  std::uint64_t offset = 0;
};
using Lines = std::deque<Line>;  // grows without being copied

enum class Change : std::uint8_t { Added, Removed, Changed, Moved };
constexpr std::array<std::string_view, 4> change_names{"added", "removed", "changed", "moved"};

struct Difference {
  Change change = Change::Added;
  std::uint64_t older = 0;  // offsets of the records; one is unused for what was added or removed
  std::uint64_t newer = 0;
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
  Side(const std::u16string& folder, ReportWarnings& warnings) : reader(folder), certificates(folder, warnings) {}
  ReportReader reader;
  CertificateBook certificates;
  Lines lines;
};

void readSide(Side& side, std::size_t which, Signers& signers) {
  side.reader.read([&](const ReportRecord& record, std::uint64_t offset) {
    Line line;
    line.offset = offset;
    line.path = digestOfText(record.name());
    const std::string digests = record[ReportField::Sha1] + record[ReportField::Sha256];
    if (!digests.empty()) line.content = digestOfText(digests);
    std::string words;
    for (const ReportField field :
         {ReportField::Company, ReportField::Installer, ReportField::Product, ReportField::Version}) {
      words.append(record[field]).append(1, '\0');
    }
    std::vector<CertificateBook::EntryPtr> entries = side.certificates.signersOf(record);
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
        if (a.content != b.content || a.words != b.words) differences.push_back({Change::Changed, a.offset, b.offset});
      },
      [&](const Line& line, Change change) { (change == Change::Removed ? removed : added).push_back(line); });
  older = {};
  newer = {};
  sortBy(removed, &Line::content);
  sortBy(added, &Line::content);
  const auto lone = [&](const Line& line, Change change) {
    differences.push_back(
        {change, change == Change::Removed ? line.offset : 0, change == Change::Added ? line.offset : 0});
  };
  join(
      removed, added, &Line::content,
      [&](const Line& a, const Line& b) {
        if (a.content != TextDigest{}) {
          differences.push_back({Change::Moved, a.offset, b.offset});
        } else {
          lone(a, Change::Removed);
          lone(b, Change::Added);
        }
      },
      lone);
  std::sort(differences.begin(), differences.end(), [](const Difference& a, const Difference& b) {
    return std::tie(a.change, a.newer, a.older) < std::tie(b.change, b.newer, b.older);
  });
  return differences;
}

// One difference with its texts.
struct Told {
  ReportRecord older;
  ReportRecord newer;
  std::string olderSigners;
  std::string newerSigners;
};

Told tell(const Difference& difference, Side& older, Side& newer) {
  Told told;
  if (difference.change != Change::Added) {
    told.older = older.reader.readAt(difference.older);
    told.olderSigners = labelsOf(older.certificates.signersOf(told.older));
  }
  if (difference.change != Change::Removed) {
    told.newer = newer.reader.readAt(difference.newer);
    told.newerSigners = labelsOf(newer.certificates.signersOf(told.newer));
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
    const std::u16string shown = forTerminal(qstr_to_wide(line));
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

bool reportDiff(const std::u16string& older, const std::u16string& newer, const std::u16string& output, bool csv) {
  ReportWarnings warnings;
  std::array<Side, 2> sides{Side(older, warnings), Side(newer, warnings)};
  Signers signers;
  for (std::size_t which = 0; which < sides.size(); ++which) {
    readSide(sides[which], which, signers);
    if (sides[which].reader.omissions().any()) warnings.tell(sides[which].reader.incompleteText());
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
