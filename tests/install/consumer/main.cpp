// A user of the installed package: asks for the certificates of its own program file, which has no signature, walks a
// folder, and runs a scan request over it.
#include <cstdio>
#include <fstream>
#include <string>

#include "common/qlib/qfile_itr.h"
#include "common/qlib/qlib.h"
#include "sgn/sgn_x509.h"
#include "utils/signing/brantle/brantle.h"

namespace {

bool unsigned_file_has_no_certificates(const std::u16string& path) {
  sgn_cert_name* names = nullptr;
  const qerr_t code = sgn_x509_get_certnames_and_store_certs(path.c_str(), u".", &names, 0, 1);
  sgn_cert_names_free(names);
  return code == QERR_NOT_FOUND;
}

int files_of_walk(const char16_t* folder) {
  qfile_itr walk;
  const qchar* path = nullptr;
  std::uint32_t is_directory = 0;
  int files = 0;
  if (qfile_itr_open(&walk, folder) != QERR_OK) return -1;
  while (qfile_itr_next(&walk, &path, &is_directory, nullptr) == QERR_OK) files += is_directory == 0 ? 1 : 0;
  return qfile_itr_close(&walk) == QERR_OK ? files : -1;
}

}  // namespace

int main(int, char** argv) {
  if (qlib_lib_init_basic() != 0) return 1;
  std::u16string path;
  for (const char* at = argv[0]; *at != '\0'; ++at) path += static_cast<char16_t>(static_cast<unsigned char>(*at));
  if (!unsigned_file_has_no_certificates(path)) return 2;
  if (qfile_mkdir(u"scanned") == QERR_OK) std::ofstream("scanned/note.txt") << "text\n";
  if (files_of_walk(u"scanned") != 1) return 3;
  {
    Brantle request;
    request.setReposPath(u"scanned");
    request.setOutputPath(u"scanned");
    if (request.invoke() != BRANTLE_OK || request.totals().files != 1) return 4;
  }
  std::string report;
  std::getline(std::ifstream("scanned/info.xml"), report, '\0');
  std::remove("scanned/info.xml");
  qlib_lib_fini_basic();
  return report.find("<ExecutableData") != std::string::npos ? 0 : 5;
}
