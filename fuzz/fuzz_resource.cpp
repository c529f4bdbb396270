// Feeds the input as a resource to the readers of versions and manifests, and as an image whose tree leads to both.
#include "common/qlib/qstr.h"
#include "inv/inv_resource.h"
#include "support/memory_file.h"
#include "target.h"
#include "utl/utl.h"

// No string is longer than the input, and none but a single character ends with a blank.
static void check_texts(const inv_cfci_t& r, std::size_t size) {
  for (const qchar* text : {r.CompanyName, r.FileVersion, r.ProductName, r.ProductVersion, r.OriginalFilename,
                            r.FileDescription, r.InternalName}) {
    const std::size_t length = qstr_len(text);
    check(length <= size / 2 && (length < 2 || text[length - 1] != u' '));
  }
  check(qstr_len(r.manifest_description) <= size);
}

void fuzz(Bytes input) {
  const auto new_record = [] { return static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))); };
  const InvCfciOwner resource(new_record());
  const InvCfciOwner image_record(new_record());
  const auto size = static_cast<std::uint32_t>(input.size());
  std::uint32_t stop = 0;
  (void)utl_res_clbk(16, input.data(), size, 0, &stop, resource.get(), sizeof(inv_cfci_t));
  (void)utl_manifest_clbk(24, input.data(), size, 0, &stop, resource.get(), sizeof(inv_cfci_t));
  check_texts(*resource, size);
  memory_file file(input);
  blib_bin* image = nullptr;
  (void)blib_bin_open_by_handle(&file, u"fuzz.exe", &image, BLIB_READ, 0);
  const BlibBinByHandleOwner owner(image);
  (void)inv_get_resource_data(u"fuzz.exe", image, image_record.get());
  check_texts(*image_record, size);
}
