#include "utils/report/report_catalogues.h"

#include <algorithm>

#include "utils/report/report_text.h"

namespace {

constexpr std::size_t max_members = std::size_t{1} << 21U;  // 16 to 32 bytes each
constexpr std::size_t max_name = 256;                       // characters

bool isSigned(const details_signature& signature) { return !signature.signers.empty(); }

}  // namespace

void CatalogueBook::read(ReportDetails& details, ReportWarnings& warnings) {
  details.readAll([&](const details_line& line) {
    if (const auto* const part = std::get_if<details_members>(&line)) return addMembers(*part, warnings);
    const auto* const file = std::get_if<details_file>(&line);
    if (file == nullptr || !isOpen_) return;
    isOpen_ = false;
    if (file->ordinal != ordinal_ || !std::any_of(file->signatures.begin(), file->signatures.end(), isSigned)) return;
    names_.back() = presentable(splitPath(file->name).name, max_name);
  });
}

void CatalogueBook::addMembers(const details_members& part, ReportWarnings& warnings) {
  if (!isOpen_ || part.ordinal != ordinal_) names_.emplace_back();
  isOpen_ = true;
  ordinal_ = part.ordinal;
  for (const details_digest& member : part.members) {
    if (count_ >= max_members) {
      if (!isFull_) warnings.tell(u"the survey's catalogues have too many members; some were not looked at");
      isFull_ = true;
      return;
    }
    std::uint32_t& number = members_.valueOf(member.value);
    if (number == 0) ++count_;
    // The first signed catalogue counts; whether this one is, its own line will tell.
    if (number == 0 || names_[number - 1].empty()) number = static_cast<std::uint32_t>(names_.size());
  }
}

std::string CatalogueBook::catalogueOf(const details_file& file) const {
  if (count_ == 0) return {};
  std::uint32_t number = 0;
  for (const details_digest& digest : file.authenticode_digests) number = std::max(number, members_.find(digest.value));
  if (number == 0 && file.record && !file.record->bare) {
    number = std::max(members_.find(file.record->sha1), members_.find(file.record->sha256));
  }
  return number == 0 ? std::string() : names_[number - 1];
}
