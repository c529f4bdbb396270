#include "utils/report/report_reader.h"

#include <expat.h>

#include <algorithm>
#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_text.h"

namespace {

constexpr int read_bytes = 1 << 18;
// The parser begins a tag or comment anew with each read until it is whole, and no scan writes any as long as this.
constexpr XML_Index max_token = XML_Index{4} << 20U;

using ParserPtr = std::unique_ptr<XML_ParserStruct, FreeWith<XML_ParserFree>>;

// A fault in what the report says, as opposed to what XML itself forbids.
struct Damage {
  std::u16string text;
};

bool isHex(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// One reading of one report.
class Reading {
 public:
  Reading(const std::u16string& path, const ReportReader::Visitor& visit, ReportOmissions& omissions)
      : path_(path), visit_(visit), omissions_(omissions), parser_(XML_ParserCreate("UTF-8")) {
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const char* name, const char** attributes) {
          of(self).guarded([&] { of(self).start(name, attributes); });
        },
        [](void* self, const char* /*name*/) { of(self).guarded([&] { of(self).end(); }); });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int length) {
      of(self).guarded([&] { of(self).text({text, static_cast<std::size_t>(length)}); });
    });
    XML_SetCommentHandler(parser_.get(), [](void* self, const char* text) {
      of(self).guarded([&] {
        if (of(self).depth_ == 1) of(self).omissions_.read(text);
      });
    });
    // Entities could grow without end; a scan declares none.
    XML_SetStartDoctypeDeclHandler(parser_.get(), [](void* self, const char*, const char*, const char*, int) {
      of(self).guarded([] { throw Damage{u"a document type, which no report has"}; });
    });
  }

  void wholeFile() {
    open();
    std::uint32_t done = 0;
    do {
      done = more();
    } while (done != 0);
  }

  // Stops behind the first record.
  void oneRecordAt(std::uint64_t offset) {
    open();
    if (qfile_seek(file_.get(), static_cast<std::int64_t>(offset), QFILE_FROM_START, nullptr) != QERR_OK) {
      throw ReportError(path_ + u": cannot be read");
    }
    static constexpr std::string_view root = "<ExecutableData>";
    onlyOne_ = true;
    check(XML_Parse(parser_.get(), root.data(), static_cast<int>(root.size()), 0));
    size_ = 1 << 12;
    while (!stopped_ && more() != 0) size_ = read_bytes;
  }

 private:
  static Reading& of(void* self) noexcept { return *static_cast<Reading*>(self); }

  // Nothing is thrown through the parser: what a handler throws is kept until the parser has returned.
  template <class Body>
  void guarded(Body&& body) noexcept {
    if (failure_ || stopped_) return;
    try {
      body();
    } catch (...) {
      failure_ = std::current_exception();
      line_ = XML_GetCurrentLineNumber(parser_.get());
      column_ = XML_GetCurrentColumnNumber(parser_.get());
      XML_StopParser(parser_.get(), XML_FALSE);
    }
  }

  void open() {
    const qerr_t code = qfile_open(file_.out(), path_.c_str(), QFILE_READ);
    if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
  }

  std::uint32_t more() {
    void* const buffer = XML_GetBuffer(parser_.get(), size_);
    if (buffer == nullptr) throw std::bad_alloc();
    std::uint32_t done = 0;
    const qerr_t code = qfile_read(file_.get(), buffer, static_cast<std::uint32_t>(size_), &done);
    if (code != QERR_OK) throw ReportError(path_ + u": " + qerr_get_string(code));
    check(XML_ParseBuffer(parser_.get(), static_cast<int>(done), done == 0 ? 1 : 0));
    fed_ += done;
    if (!stopped_ && fed_ - XML_GetCurrentByteIndex(parser_.get()) > max_token) {
      throw ReportError(placed(XML_GetCurrentLineNumber(parser_.get()), XML_GetCurrentColumnNumber(parser_.get())) +
                        u"a tag or comment longer than any scan writes");
    }
    return done;
  }

  void check(XML_Status status) const {
    if (failure_) {
      try {
        std::rethrow_exception(failure_);
      } catch (const Damage& damage) {
        throw ReportError(placed(line_, column_) + damage.text);
      }
    }
    if (status == XML_STATUS_OK || stopped_) return;
    if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    throw ReportError(placed(XML_GetCurrentLineNumber(parser_.get()), XML_GetCurrentColumnNumber(parser_.get())) +
                      qstr_to_wide(XML_ErrorString(XML_GetErrorCode(parser_.get()))));
  }

  [[nodiscard]] std::u16string placed(XML_Size line, XML_Size column) const {
    return path_ + u':' + qstr_to_wide(std::to_string(line)) + u':' + qstr_to_wide(std::to_string(column + 1)) + u": ";
  }

  // depth_ counts the elements that are open: root, record, field or list, certificate.
  void start(std::string_view name, const char** attributes) {
    switch (depth_) {
      case 0:
        expect(name == "ExecutableData", name);
        break;
      case 1:
        expect(name == "Executable", name);
        record_.clear();
        offset_ = static_cast<std::uint64_t>(XML_GetCurrentByteIndex(parser_.get()));
        break;
      case 2:
        startField(name);
        break;
      default:
        expect(depth_ == 3 && inList_ && name == "Certificate", name);
        addCertificate(attributes);
    }
    ++depth_;
  }

  static void expect(bool right, std::string_view name) {
    if (!right) throw Damage{u"an unexpected element \"" + qstr_to_wide(name.substr(0, 64)) + u'"'};
  }

  void startField(std::string_view name) {
    inList_ = name == "CertificatesExtracted";
    if (inList_) return;
    const auto found = std::find(REPORT_FIELDS.begin(), REPORT_FIELDS.end(), name);
    expect(found != REPORT_FIELDS.end(), name);
    field_ = static_cast<std::size_t>(found - REPORT_FIELDS.begin());
    if (record_.present[field_]) throw Damage{u"a second \"" + qstr_to_wide(name) + u"\" in one entry"};
    record_.present[field_] = true;
    inField_ = true;
  }

  void addCertificate(const char** attributes) {
    for (; *attributes != nullptr; attributes += 2) {
      if (std::string_view(*attributes) != "name") continue;
      CertificateName name{};
      if (!hexToBytes(attributes[1], name)) throw Damage{u"not a certificate's name"};
      if (record_.certificates.size() >= REPORT_MAX_CERTIFICATES) throw Damage{u"too many certificates in one entry"};
      record_.certificates.push_back(name);
      return;
    }
    throw Damage{u"a certificate without a name"};
  }

  void text(std::string_view piece) {
    if (!inField_) {
      if (piece.find_first_not_of(" \t\r\n") != std::string_view::npos) throw Damage{u"text outside of a value"};
      return;
    }
    std::string& value = record_.texts[field_];
    if (piece.size() > REPORT_MAX_TEXT - value.size()) throw Damage{u"a value longer than any scan writes"};
    value += piece;
  }

  void end() {
    --depth_;
    if (depth_ == 2) inField_ = inList_ = false;
    if (depth_ != 1) return;
    checkRecord();
    if (onlyOne_) {
      stopped_ = true;
      XML_StopParser(parser_.get(), XML_FALSE);
    }
    visit_(record_, offset_);
  }

  void checkRecord() const {
    if (!record_.present[static_cast<std::size_t>(ReportField::Name)]) throw Damage{u"an entry without a name"};
    const std::string& sha1 = record_[ReportField::Sha1];
    const std::string& sha256 = record_[ReportField::Sha256];
    const std::string& installer = record_[ReportField::Installer];
    if ((!sha1.empty() && sha1.size() != 40) || (!sha256.empty() && sha256.size() != 64) || !isHex(sha1) ||
        !isHex(sha256)) {
      throw Damage{u"an entry whose digest is none"};
    }
    if (!installer.empty() && installer != "yes" && installer != "no") {
      throw Damage{u"an entry whose isInstaller is neither yes nor no"};
    }
  }

  const std::u16string& path_;
  const ReportReader::Visitor& visit_;
  ReportOmissions& omissions_;
  ParserPtr parser_;
  QfileOwner file_;
  int size_ = read_bytes;
  XML_Index fed_ = 0;  // bytes given to the parser
  std::exception_ptr failure_;
  XML_Size line_ = 0;  // where it arose
  XML_Size column_ = 0;
  ReportRecord record_;
  std::uint64_t offset_ = 0;
  std::size_t field_ = 0;
  int depth_ = 0;
  bool inField_ = false;
  bool inList_ = false;
  bool onlyOne_ = false;
  bool stopped_ = false;
};

}  // namespace

ReportReader::ReportReader(std::u16string folder)
    : folder_(std::move(folder)), path_(qpath_join(folder_, u"info.xml")) {}

void ReportReader::read(const Visitor& visit) {
  omissions_ = {};
  Reading(path_, visit, omissions_).wholeFile();
}

std::u16string ReportReader::incompleteText() const {
  return path_ + u": this report is incomplete: " + qstr_to_wide(omissions_.text());
}

ReportRecord ReportReader::readAt(std::uint64_t offset) const {
  ReportRecord found;
  ReportOmissions ignored;
  const Visitor keep = [&](const ReportRecord& record, std::uint64_t) { found = record; };
  Reading(path_, keep, ignored).oneRecordAt(offset);
  return found;
}
