// The cabinet header and the way to the signature, over arbitrary files.
#include "blib/blib_bin.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_pkcs7.h"
#include "support/memory_file.h"
#include "target.h"

void fuzz(Bytes input) {
  blib_file opened;
  *opened.file.out() = new memory_file(input);
  sgn_p7* object = nullptr;
  const qerr_t code = sgn_extract_cab_cert_of_file_alloc(u"fuzz.cab", opened, &object, nullptr);
  const SgnP7Owner p7(object);
  // A file that can be read is a signed cabinet, none, or has a broken signature.
  check(code == QERR_OK || code == QERR_INVALID || code == QERR_ALL_BITS);
  check((p7 != nullptr) == (code == QERR_OK));
  check(code != QERR_OK || (input.size() >= 52 && input[0] == std::byte{'M'}));  // header, reserve fields and record
}
