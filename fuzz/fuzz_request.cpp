// A whole small request in memory: one file, named after what its first bytes promise, goes through record,
// certificates and report; the last byte sets the modes. What comes out must be a report that an independent parser
// reads, with the certificates that it names.
#include <expat.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "budget.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "support/memory_file.h"
#include "support/refusing_provider.h"
#include "support/replaced.h"
#include "utils/signing/brantle/brantle.h"

namespace {

using Files = std::map<std::u16string, std::vector<std::byte>>;

void check(bool holds) {
  if (!holds) std::abort();
}

// Collects what is written.
class written_file final : public qfile_object {
 public:
  explicit written_file(std::vector<std::byte>& bytes) noexcept : bytes_(bytes) {}
  qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
    const auto* const bytes = static_cast<const std::byte*>(buffer);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
    done = size;
    return {};
  }
  qsys_status read(void*, std::uint32_t, std::uint32_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status seek(std::int64_t, std::uint32_t, std::uint64_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status size(std::uint64_t&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status truncate(std::uint64_t) noexcept override { return {QERR_PERMISSION}; }
  qsys_status info(qfile_info&) noexcept override { return {QERR_PERMISSION}; }
  qsys_status view(std::byte*, std::size_t, std::size_t&) noexcept override { return {QERR_PERMISSION}; }

 private:
  std::vector<std::byte>& bytes_;
};

// One file to read, and a folder to write to.
class memory_disk final : public refusing_provider, replaced<qfile_set_provider> {
 public:
  memory_disk(std::u16string path, Bytes bytes) : replaced(this), path_(std::move(path)), bytes_(bytes) {}
  Files written;

  qsys_status open(const qchar* path, std::uint32_t flags, Object& out) override {
    if (path != path_ || (flags & QFILE_WRITE) != 0) return missing();
    out = std::make_unique<memory_file>(bytes_);
    return {};
  }
  qsys_status exists(const qchar* path) override { return path == path_ ? qsys_status() : missing(); }
  qsys_status info(const qchar* path, qfile_info& out) override {
    if (path != path_) return missing();
    out = {bytes_.size(), 0, 0};
    return {};
  }
  qsys_status create_exclusive(const qchar* path, Object& out) override {
    out = std::make_unique<written_file>(written[path]);
    return {};
  }
  qsys_status rename(const qchar* source, const qchar* target) override {
    written[target] = std::move(written[source]);
    written.erase(source);
    return {};
  }
  qsys_status remove(const qchar* path) override { return written.erase(path) != 0 ? qsys_status() : missing(); }
  qsys_status search(const qchar* pattern, Search& out) override {
    if (pattern != path_) return missing();
    out = std::make_unique<one_entry>(path_.substr(path_.find_last_of(u"/\\") + 1));
    return {};
  }

 private:
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
  std::u16string path_;
  Bytes bytes_;
};

// The stems that the report names; each element must be one that reports have.
std::set<std::u16string> read_report(const std::vector<std::byte>& report) {
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
  check(XML_Parse(parser, reinterpret_cast<const char*>(report.data()), static_cast<int>(report.size()), 1) ==
        XML_STATUS_OK);
  XML_ParserFree(parser);
  return stems;
}

const qchar* kind_of(std::string_view bytes) {
  return bytes.starts_with("MZ")         ? u"exe"
         : bytes.starts_with("MSCF")     ? u"cab"
         : bytes.starts_with("\xD0\xCF") ? u"msi"
                                         : u"dll";
}

std::u16string stem_of(const std::u16string& path) {
  const std::size_t start = path.find_last_of(u"/\\") + 1;
  return path.substr(start, path.rfind(u'.') - start);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = qlib_lib_init_basic() == 0;
  const budget spent(size);
  if (!started || size == 0) return 0;
  qlog_console_off();
  qlib_set_standalone(true);
  const std::u16string folder = qpath_native_separator() == u'/' ? u"/fuzzed" : u"C:\\fuzzed";
  const std::u16string path = qpath_join(folder, u"file.") + kind_of({reinterpret_cast<const char*>(data), size});
  memory_disk disk(path, std::as_bytes(std::span(data, size)));
  Brantle request;
  request.setReposPath(path);
  request.setOutputPath(qpath_join(folder, u"out"));
  request.allCerts = data[size - 1] & 1;
  request.cabFile = request.certsOnly = data[size - 1] >> 1 & 1;
  check(request.invoke() == 0);
  std::set<std::u16string> stems;
  const std::vector<std::byte>* report = nullptr;
  for (const auto& [name, bytes] : disk.written) {
    if (name.ends_with(u".cer")) {
      check(stem_of(name).size() == 64 && !bytes.empty());
      stems.insert(stem_of(name));
    } else {
      check(name.ends_with(u"info.xml") && report == nullptr);
      report = &bytes;
    }
  }
  check((report == nullptr) == (request.certsOnly != 0));
  if (report != nullptr) {
    const std::set<std::u16string> named = read_report(*report);
    // A file may hold certificates of a signature before one that cannot be read; then nothing is named.
    check(std::includes(stems.begin(), stems.end(), named.begin(), named.end()));
  }
  return 0;
}
