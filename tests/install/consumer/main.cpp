// A user of the installed package: asks for the certificates of its own program file, which carries no signature.
#include <cstdio>
#include <string>

#include "common/qlib/qlib.h"
#include "sgn/sgn_x509.h"

int main(int, char** argv) {
  if (qlib_lib_init_basic() != 0) return 1;
  std::u16string path;
  for (const char* at = argv[0]; *at != '\0'; ++at) path += static_cast<char16_t>(static_cast<unsigned char>(*at));
  sgn_cert_name* names = nullptr;
  const qerr_t code = sgn_x509_get_certnames_and_store_certs(path.c_str(), u".", &names, 0, 1);
  sgn_cert_names_free(names);
  qlib_lib_fini_basic();
  std::printf("code %u\n", static_cast<unsigned>(code));
  return code == 2 ? 0 : 1;  // "not found": no signature here
}
