// Feeds the input as a resource to the readers of versions and manifests, and as an image whose tree leads to both.
#include <cstdlib>

#include "budget.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "inv/inv_resource.h"
#include "support/memory_file.h"
#include "utl/utl.h"

// No string is longer than the input, and none but a single character ends with a blank.
static void check(const inv_cfci_t& r, std::size_t size) {
  for (const qchar* text : {r.CompanyName, r.FileVersion, r.ProductName, r.ProductVersion, r.OriginalFilename,
                            r.FileDescription, r.InternalName}) {
    const std::size_t length = qstr_len(text);
    if (length > size / 2 || (length > 1 && text[length - 1] == u' ')) std::abort();
  }
  if (qstr_len(r.manifest_description) > size) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const budget spent(size);
  static const bool started = qlib_lib_init_basic() == 0;
  if (!started) std::abort();
  qlog_console_off();
  qlib_set_standalone(true);
  for (const bool as_image : {false, true}) {
    const InvCfciOwner record(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
    memory_file file(std::as_bytes(std::span(data, size)));
    blib_bin* image = nullptr;
    if (as_image && blib_bin_open_by_handle(&file, u"fuzz.exe", &image, BLIB_READ, 0) == QERR_OK) {
      const BlibBinByHandleOwner owner(image);
      (void)inv_get_resource_data(u"fuzz.exe", image, record.get());
    } else if (!as_image) {
      std::uint32_t stop = 0;
      (void)utl_res_clbk(16, data, static_cast<std::uint32_t>(size), 0, &stop, record.get(), sizeof(*record));
      (void)utl_manifest_clbk(24, data, static_cast<std::uint32_t>(size), 0, &stop, record.get(), sizeof(*record));
    }
    check(*record, size);
  }
  return 0;
}
