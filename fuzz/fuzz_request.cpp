// A whole small request: one file, named after what its first bytes promise, goes through record, certificates and
// report; the last byte sets the modes. What comes out must be a report that an independent parser reads, with the
// certificates that it names, and nothing may be written beside the output folder.
#include <expat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "target.h"
#include "utils/signing/brantle/brantle.h"

namespace {

namespace fs = std::filesystem;
using Stems = std::set<std::string>;

// The stems that the report names; each element must be one that reports have.
Stems read_report(const fs::path& path) {
  static const std::set<std::string_view> known{
      "ExecutableData", "Executable",  "Name",        "SHA1",           "SHA256",
      "companyName",    "isInstaller", "productName", "productVersion", "CertificatesExtracted",
      "Certificate"};
  std::ifstream in(path, std::ios::binary);
  const std::string report(std::istreambuf_iterator<char>(in), {});
  Stems stems;
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &stems);
  XML_SetStartElementHandler(parser, [](void* user, const XML_Char* name, const XML_Char** attributes) {
    check(known.contains(name));
    if (std::string_view(name) != "Certificate") return;
    check(attributes[0] != nullptr && std::string_view(attributes[0]) == "name");
    static_cast<Stems*>(user)->insert(attributes[1]);
  });
  check(XML_Parse(parser, report.data(), static_cast<int>(report.size()), 1) == XML_STATUS_OK);
  XML_ParserFree(parser);
  return stems;
}

const char* kind_of(std::string_view bytes) {
  return bytes.starts_with("MZ")         ? ".exe"
         : bytes.starts_with("MSCF")     ? ".cab"
         : bytes.starts_with("\xD0\xCF") ? ".msi"
                                         : ".dll";
}

}  // namespace

void fuzz(Bytes input) {
  if (input.empty()) return;
  static const fs::path folder = fs::temp_directory_path() / ("fuzz_request." + std::to_string(std::random_device()()));
  const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
  const fs::path path = (folder / "file") += kind_of(bytes);
  fs::create_directories(folder / "out");
  std::ofstream(path, std::ios::binary) << bytes;
  const auto last = std::to_integer<std::uint32_t>(input.back());
  Brantle request;
  request.setReposPath(path.u16string());
  request.setOutputPath((folder / "out").u16string());
  request.allCerts = last & 1;
  request.cabFile = request.certsOnly = path.extension() == ".cab" ? 1 : last >> 1 & 1;
  check(request.invoke() == 0);
  Stems written;
  for (const fs::path& file : fs::directory_iterator(folder / "out")) {
    const std::string name = file.filename().string();
    check(name == "info.xml" || (name.size() == 68 && file.extension() == ".cer" && fs::file_size(file) != 0));
    if (name != "info.xml") written.insert(file.stem().string());
  }
  check(fs::exists(folder / "out/info.xml") == (request.certsOnly == 0));
  // A file may hold certificates of a signature before one that cannot be read; then nothing is named.
  const Stems named = request.certsOnly == 0 ? read_report(folder / "out/info.xml") : Stems();
  check(std::includes(written.begin(), written.end(), named.begin(), named.end()));
  check(fs::remove_all(folder) == 3 + written.size() + (request.certsOnly == 0 ? 1 : 0));  // and nothing else was there
}
