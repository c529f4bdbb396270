#include "utils/signing/brantle/brantle_complaints.h"

#include "common/qlib/qerr.h"
#include "common/qlib/qprintable.h"

namespace {

std::u16string wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

void say(std::u16string& lines, std::u16string_view text) {
  lines.append(u"brantle: ").append(qprintable(text)).push_back(u'\n');
}

std::string certificatesText(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " certificate" : " certificates");
}

void sayUnwritten(std::u16string& lines, const BrantleFailures& failures) {
  const auto reason = [](std::uint32_t code) { return u" not written: " + std::u16string(qerr_get_string(code)); };
  if (failures.noOutput) {
    say(lines, u"OUTPUT is empty:" + reason(QERR_NOT_FOUND));
    return;
  }
  for (const BrantleDocument& one : failures.documents) {
    say(lines, one.instead.empty() ? one.path + u":" + reason(one.code)
                                   : one.path + u": in use by another program; the new one is " + one.instead);
  }
  if (failures.certificates.certificates == 0) return;
  say(lines, failures.output + u": " + wide(certificatesText(failures.certificates.certificates)) +
                 reason(failures.certificates.code));
}

void sayLeftOut(std::u16string& lines, const qfile_left_out& leftOut) {
  for (const qfile_left_out::place& one : leftOut.first) {
    say(lines, one.path + u": left out: " + qerr_get_string(one.code));
  }
  const std::uint64_t all = leftOut.directories + leftOut.files;
  if (all > leftOut.first.size()) say(lines, wide(std::to_string(all - leftOut.first.size()) + " more were left out"));
}

}  // namespace

std::u16string brantleComplaints(const Brantle& request) {
  std::u16string lines;
  sayUnwritten(lines, request.failures());
  sayLeftOut(lines, request.leftOut());
  if (const std::string incomplete = request.incompleteText(); !incomplete.empty()) say(lines, wide(incomplete));
  return lines;
}

std::string brantleRemarks(const Brantle& request, bool interrupted) {
  std::string remarks = interrupted ? ", interrupted" : "";
  const BrantleFailures& failures = request.failures();
  if (failures.noOutput) return remarks + ", nothing written";
  for (const BrantleDocument& one : failures.documents) {
    const std::string name(one.name.begin(), one.name.end());
    remarks += one.instead.empty() ? ", " + name + " not written" : ", " + name + " not replaced";
  }
  if (const std::size_t count = failures.certificates.certificates; count != 0) {
    remarks += ", " + certificatesText(count) + " not written";
  }
  return remarks;
}
