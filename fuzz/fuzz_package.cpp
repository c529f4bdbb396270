// A package's compound file, tables, summary information and signature stream, from memory.
#include <algorithm>
#include <string>

#include "common/qlib/qmem.h"
#include "msi/msi_package.h"
#include "msi/msi_signature.h"
#include "msi/package_facts.h"
#include "support/memory_file.h"
#include "target.h"

void fuzz(Bytes input) {
  memory_file file(input);
  std::shared_ptr<msi_package> package;
  if (msi_package_open_file(u"package", &file, &package) != QERR_OK) return;
  msi_handle database = 0;
  if (msi_open_package_database(package, &database) == MSI_OK) {
    msi_package_facts facts;
    check(msi_read_package_facts(database, &facts) == QERR_OK);
    check(msi_close_handle(database) == MSI_OK);
    for (const msi_fact& fact : {facts.product_code, facts.upgrade_code, facts.product_language, facts.package_code,
                                 facts.architecture, facts.languages}) {
      check(fact.result == MSI_OK || fact.text.empty());
      // A text is never longer than the bytes that it was made from.
      check(fact.text.size() <= std::min<std::size_t>(input.size(), MSI_MAX_TEXT));
    }
  }
  std::byte* signature = nullptr;
  std::uint32_t length = 0;
  const qerr_t code = msi_package_get_signature_alloc(package.get(), &signature, &length);
  const QmemPtr<std::byte> owner(signature);
  check(code != QERR_OK || (length != 0 && length <= input.size() + 4096));
}
