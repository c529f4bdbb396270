// Writes every certificate of FILE into FOLDER and prints the stems, in list order: sgn_extract FILE FOLDER ALL
#include <cstdio>
#include <filesystem>

#include "common/qlib/qlib.h"
#include "sgn/sgn_x509.h"

int main(int argc, char** argv) {
  if (argc != 4 || qlib_lib_init_basic() != 0) return 2;
  const std::u16string file = std::filesystem::path(argv[1]).u16string();
  const std::u16string folder = std::filesystem::path(argv[2]).u16string();
  sgn_cert_name* names = nullptr;
  const qerr_t code =
      sgn_x509_get_certnames_and_store_certs(file.c_str(), folder.c_str(), &names, 0, argv[3][0] == '1' ? 1 : 0);
  for (const sgn_cert_name* node = names; node != nullptr; node = node->next) {
    for (const qchar* unit = node->name; *unit != 0; ++unit) std::putchar(static_cast<char>(*unit));
    std::putchar('\n');
  }
  sgn_cert_names_free(names);
  qlib_lib_fini_basic();
  return code == 0 ? 0 : 1;
}
