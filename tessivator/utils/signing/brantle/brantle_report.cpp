#include "utils/signing/brantle/brantle_report.h"

#include "common/qlib/qerr.h"
#include "common/qlib/qstr.h"

namespace {

// What is gathered before it is written. The printer counts in int: nothing but one record ever adds to this.
constexpr std::size_t piece = 65536;

// XML 1.0 forbids most control characters, unpaired surrogates and the two noncharacters U+FFFE and U+FFFF;
// one of them in a file name or version string would make the whole report unreadable. A carriage return is allowed,
// but every reader turns it into a line feed.
std::u16string allowedText(const std::u16string& value) {
  std::u16string text = value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const qchar unit = text[i];
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      ++i;  // a whole pair
      continue;
    }
    const bool surrogate = unit >= 0xD800 && unit <= 0xDFFF;
    const bool control = unit < 0x20 && unit != u'\t' && unit != u'\n';
    if (surrogate || control || unit >= 0xFFFE) text[i] = 0xFFFD;
  }
  return text;
}

void pushCertificates(tinyxml2::XMLPrinter& xml, const sgn_cert_name* names) {
  int count = 0;
  for (const sgn_cert_name* node = names; node != nullptr; node = node->next) ++count;
  xml.OpenElement("CertificatesExtracted");
  xml.PushAttribute("count", count);
  for (const sgn_cert_name* node = names; node != nullptr; node = node->next) {
    xml.OpenElement("Certificate");
    xml.PushAttribute("name", qstr_to_utf8(node->name).c_str());
    xml.CloseElement();
  }
  xml.CloseElement();
}

}  // namespace

// Printed element by element: a document tree of a large repository would take several times the report's size.
BrantleReport::BrantleReport(const std::u16string& path) : code_(file_.begin(path.c_str())) {
  xml_.PushDeclaration("xml version=\"1.0\" encoding=\"UTF-8\"");
  xml_.OpenElement("ExecutableData");
}

void BrantleReport::add(const BrantleRecord& record, const sgn_cert_name* names) {
  if (code_ != QERR_OK) return;
  // What takes memory comes first: want of it costs this record.
  std::vector<std::string> texts;
  texts.reserve(record.size());
  for (const auto& field : record) texts.push_back(qstr_to_utf8(allowedText(field.second)));
  try {
    push(record, texts, names);
  } catch (...) {  // a record that ends in its middle cannot be taken back
    code_ = QERR_LOW_MEMORY;
    file_.abandon();
    throw;
  }
}

void BrantleReport::push(const BrantleRecord& record, const std::vector<std::string>& texts,
                         const sgn_cert_name* names) {
  xml_.OpenElement("Executable");
  for (auto text = texts.begin(); const auto& field : record) {
    xml_.OpenElement(field.first.c_str());
    xml_.PushText((text++)->c_str());
    xml_.CloseElement();
  }
  pushCertificates(xml_, names);
  xml_.CloseElement();
  if (static_cast<std::size_t>(xml_.CStrSize()) > piece) drain();
}

qerr_t BrantleReport::finish(const std::string& comment) {
  if (code_ != QERR_OK) return code_;
  if (!comment.empty()) xml_.PushComment((" " + comment + " ").c_str());
  xml_.CloseElement();
  drain();
  if (code_ == QERR_OK) code_ = file_.commit(true);
  file_.abandon();
  return code_;
}

void BrantleReport::drain() {
  code_ = file_.write(xml_.CStr(), static_cast<std::size_t>(xml_.CStrSize()) - 1);
  xml_.ClearBuffer(false);
  if (code_ != QERR_OK) file_.abandon();  // a full disk has better uses for the space
}
