// The report document info.xml.
#include <tinyxml2.h>

#include "common/qlib/qfile.h"
#include "common/qlib/qstr.h"
#include "utils/signing/brantle/brantle.h"

namespace {

// XML 1.0 forbids most control characters, unpaired surrogates and the two noncharacters U+FFFE and U+FFFF;
// one of them in a file name or version string would make the whole report unreadable.
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
    const bool control = unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r';
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

// Printed element by element: a document tree of a large repository would take several times the report's
// size.
std::string Brantle::reportText() const {
  tinyxml2::XMLPrinter xml;
  xml.PushDeclaration("xml version=\"1.0\" encoding=\"UTF-8\"");
  xml.OpenElement("ExecutableData");
  for (const BrantleRecord& record : records) {
    xml.OpenElement("Executable");
    for (const auto& [key, value] : record) {
      xml.OpenElement(key.c_str());
      xml.PushText(qstr_to_utf8(allowedText(value)).c_str());
      xml.CloseElement();
    }
    const auto name = record.find("Name");
    const auto found = name != record.end() ? certNamesMap.find(name->second) : certNamesMap.end();
    pushCertificates(xml, found != certNamesMap.end() ? found->second.get() : nullptr);
    xml.CloseElement();
  }
  xml.CloseElement();
  return {xml.CStr(), static_cast<std::size_t>(xml.CStrSize()) - 1};
}

// A report that cannot be written is not reported: the request's result tells about the scan, not about its
// output.
void Brantle::writeInfoXml() const {
  const std::string text = reportText();
  (void)qfile_write_whole(infoXmlPath.c_str(), text.data(), text.size(), 1);
}
