// A package's compound file, string pool, Property table and signature stream, from memory.
#include <string>

#include "common/qlib/qerr.h"
#include "msi/package_object.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"
#include "support/memory_file.h"
#include "target.h"

void fuzz(Bytes input) {
  memory_file file(input);
  std::shared_ptr<msi_package> package;
  if (msi_package_open_file(u"package", &file, &package) != QERR_OK) return;
  (void)package->compound().has_whole_streams(MSI_TABLE_MARK);
  if (const auto table = property_table::open(package->compound())) {
    std::u16string value;
    for (const char* name : {"ProductName", "Manufacturer", "ProductVersion"}) {
      // A text is never longer than the bytes that it was made from.
      check(table->value(name, value) != property_result::found || value.size() <= input.size());
    }
  }
  QmemPtr<std::byte> signature;
  std::uint32_t length = 0;
  check(signature_stream_read(*package, signature, length) != QERR_OK ||
        (length != 0 && length <= input.size() + 4096));
}
