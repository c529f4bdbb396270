// A whole small request in memory: one file, named after what its first bytes promise, goes through record,
// certificates and report; the last byte sets the modes. What comes out must be a report that an independent parser
// reads, with the certificates that it names.
#include <expat.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "support/memory_file.h"
#include "support/refusing_provider.h"
#include "support/replaced.h"
#include "target.h"
#include "utils/signing/brantle/brantle.h"

namespace {

class one_entry final : public qfile_search {
 public:
  explicit one_entry(std::u16string name) : name_(std::move(name)) {}
  qsys_status next(qfile_entry& entry) override {
    if (name_.empty()) return {QERR_END, qsys_condition::end_of_directory};
    entry.name = std::exchange(name_, {});
    return {};
  }

 private:
  std::u16string name_;
};

// One file to read, and a folder to write to.
class memory_disk final : public refusing_provider, replaced<qfile_set_provider> {
 public:
  memory_disk(std::u16string path, Bytes bytes) : replaced(this), path_(std::move(path)), bytes_(bytes) {}
  std::map<std::u16string, std::string> written;

  qsys_status open(const qchar* path, std::uint32_t flags, Object& out) override {
    if ((flags & QFILE_WRITE) != 0) return missing();
    return to_path(path, [&] { out = std::make_unique<memory_file>(bytes_); });
  }
  qsys_status exists(const qchar* path) override {
    return to_path(path, [] {});
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    return to_path(path, [&] { out = {bytes_.size(), 0, 0}; });
  }
  qsys_status search(const qchar* pattern, Search& out) override {
    return to_path(pattern, [&] { out = std::make_unique<one_entry>(path_.substr(path_.find_last_of(u"/\\") + 1)); });
  }
  qsys_status create_exclusive(const qchar* path, Object& out) override {
    auto made = std::make_unique<memory_file>(Bytes());
    made->written = &written[path];
    out = std::move(made);
    return {};
  }
  qsys_status rename(const qchar* source, const qchar* target) override {
    written[target] = std::move(written[source]);
    written.erase(source);
    return {};
  }
  qsys_status remove(const qchar* path) override { return written.erase(path) != 0 ? qsys_status() : missing(); }

 private:
  template <class Answer>
  qsys_status to_path(const qchar* path, Answer&& answer) {
    if (path != path_) return missing();
    answer();
    return {};
  }

  std::u16string path_;
  Bytes bytes_;
};

// The stems that the report names; each element must be one that reports have.
std::set<std::u16string> read_report(std::string_view report) {
  static const std::set<std::string_view> known{
      "ExecutableData", "Executable",  "Name",        "SHA1",           "SHA256",
      "companyName",    "isInstaller", "productName", "productVersion", "CertificatesExtracted",
      "Certificate"};
  std::set<std::u16string> stems;
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &stems);
  XML_SetStartElementHandler(parser, [](void* user, const XML_Char* name, const XML_Char** attributes) {
    check(known.contains(name));
    if (std::string_view(name) != "Certificate") return;
    check(attributes[0] != nullptr && std::string_view(attributes[0]) == "name");
    static_cast<std::set<std::u16string>*>(user)->insert(qstr_to_wide(attributes[1]));
  });
  check(XML_Parse(parser, report.data(), static_cast<int>(report.size()), 1) == XML_STATUS_OK);
  XML_ParserFree(parser);
  return stems;
}

const qchar* kind_of(std::string_view bytes) {
  return bytes.starts_with("MZ")         ? u"exe"
         : bytes.starts_with("MSCF")     ? u"cab"
         : bytes.starts_with("\xD0\xCF") ? u"msi"
                                         : u"dll";
}

}  // namespace

void fuzz(Bytes input) {
  if (input.empty()) return;
  const auto last = std::to_integer<std::uint32_t>(input.back());
  const std::u16string folder = qpath_native_separator() == u'/' ? u"/fuzzed" : u"C:\\fuzzed";
  const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
  const std::u16string path = qpath_join(folder, u"file.") + kind_of(bytes);
  memory_disk disk(path, input);
  Brantle request;
  request.setReposPath(path);
  request.setOutputPath(qpath_join(folder, u"out"));
  request.allCerts = last & 1;
  request.cabFile = request.certsOnly = last >> 1 & 1;
  check(request.invoke() == 0);
  std::set<std::u16string> stems;
  const std::string* report = nullptr;
  for (const auto& [name, text] : disk.written) {
    if (name.ends_with(u".cer")) {
      stems.insert(name.substr(name.size() - 68, 64));
      check(name[name.size() - 69] == qpath_native_separator() && !text.empty());
    } else {
      check(name.ends_with(u"info.xml") && report == nullptr);
      report = &text;
    }
  }
  check((report == nullptr) == (request.certsOnly != 0));
  // A file may hold certificates of a signature before one that cannot be read; then nothing is named.
  const std::set<std::u16string> named = report != nullptr ? read_report(*report) : std::set<std::u16string>();
  check(std::includes(stems.begin(), stems.end(), named.begin(), named.end()));
}
