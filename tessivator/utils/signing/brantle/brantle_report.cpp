#include "utils/signing/brantle/brantle_report.h"

#include <algorithm>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qutf8.h"

namespace {

// Size of the output buffer. The printer counts in int: it never holds more than this and one record.
constexpr std::size_t piece = 65536;

// XML 1.0 forbids most control characters, unpaired surrogates and the noncharacters U+FFFE and U+FFFF; one of them in
// a file name or version string would make the whole report unreadable. A carriage return is allowed, but every reader
// turns it into a line feed.
bool isAllowed(char32_t scalar) noexcept {
  return scalar >= 0x20 ? scalar != 0xFFFE && scalar != 0xFFFF : scalar == U'\t' || scalar == U'\n';
}

void pushCertificates(tinyxml2::XMLPrinter& xml, const sgn_cert_name* names) {
  int count = 0;
  for (const sgn_cert_name* node = names; node != nullptr; node = node->next) ++count;
  xml.OpenElement("CertificatesExtracted");
  xml.PushAttribute("count", std::to_string(count).c_str());
  for (const sgn_cert_name* node = names; node != nullptr; node = node->next) {
    xml.OpenElement("Certificate");
    xml.PushAttribute("name", qstr_to_utf8(node->name).c_str());
    xml.CloseElement();
  }
  xml.CloseElement();
}

}  // namespace

// Nearly all texts are pure ASCII.
bool brantleReportText(std::string& text, std::u16string_view value) {
  const auto* const end = std::find_if(value.begin(), value.end(), [](qchar u) { return u < 0x20 || u >= 0x80; });
  text.resize(static_cast<std::size_t>(end - value.begin()));
  std::transform(value.begin(), end, text.begin(), [](qchar unit) { return static_cast<char>(unit); });
  value.remove_prefix(text.size());
  bool whole = true;
  while (!value.empty()) {
    const qutf8_step step = qutf16_next(value);
    const bool allowed = step.valid && isAllowed(step.scalar);
    whole = whole && allowed;
    qutf8_append(text, allowed ? step.scalar : QUTF8_REPLACEMENT);
    value.remove_prefix(step.length);
  }
  return whole;
}

// Printed element by element: the document tree of a large repository would take several times the size of the report.
BrantleReport::BrantleReport(const std::u16string& path) : code_(file_.begin(path.c_str())) {
  xml_.PushDeclaration("xml version=\"1.0\" encoding=\"UTF-8\"");
  xml_.OpenElement("ExecutableData");
}

void BrantleReport::add(const BrantleRecord& record, const sgn_cert_name* names) {
  if (code_ != QERR_OK) return;
  // Allocations come first: if memory runs out, only this record is lost.
  for (std::size_t i = 0; i < BrantleRecord::count; ++i) (void)brantleReportText(texts_[i], record.texts[i]);
  try {
    push(record.isBare, names);
  } catch (...) {  // a record that ends in its middle cannot be taken back
    code_ = QERR_LOW_MEMORY;
    file_.abandon();
    throw;
  }
}

void BrantleReport::push(bool isBare, const sgn_cert_name* names) {
  xml_.OpenElement("Executable");
  for (std::size_t i = 0; i < BrantleRecord::count; ++i) {
    if (isBare && i == BrantleRecord::SHA256) continue;
    xml_.OpenElement(BrantleRecord::names[i]);
    xml_.PushText(texts_[i].c_str());
    xml_.CloseElement();
  }
  pushCertificates(xml_, names);
  xml_.CloseElement();
  if (static_cast<std::size_t>(xml_.CStrSize()) > piece) drain();
}

qerr_t BrantleReport::finish(const std::string& comment, const qchar* otherName, qfile_committed* how) {
  if (code_ != QERR_OK) return code_;
  if (!comment.empty()) xml_.PushComment((" " + comment + " ").c_str());
  xml_.CloseElement();
  drain();
  if (code_ == QERR_OK) code_ = file_.commit_over_held(otherName, how);
  if (code_ == QERR_OK && digest_) digestText_ = digest_->text();
  file_.abandon();
  return code_;
}

void BrantleReport::drain() {
  const std::string_view text(xml_.CStr(), static_cast<std::size_t>(xml_.CStrSize()) - 1);
  if (digest_) digest_->add(text);
  code_ = file_.write(text.data(), text.size());
  xml_.ClearBuffer(false);
  if (code_ != QERR_OK) file_.abandon();  // a full disk has better uses for the space
}
