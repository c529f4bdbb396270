// Images: open, certificate table, resource walk. Whatever the bytes, nothing comes out that the file does not hold,
// and the walk costs no more than a few times the file.
#include "blib/blib_cert.h"
#include "blib/blib_res.h"
#include "support/memory_file.h"
#include "target.h"

namespace {

qerr_t visit(std::uint32_t, const void* data, std::uint32_t size, std::uint32_t, std::uint32_t*, void* context,
             std::size_t) {
  check(data != nullptr && size <= BLIB_RES_MOST_BYTES);
  ++*static_cast<std::uint64_t*>(context);
  return QERR_OK;
}

void read_image(blib_bin* image, std::size_t size) {
  blib_authenticode_list* list = nullptr;
  std::uint64_t total = 0;
  if (blib_bin_get_authenticode_signature_buf_alloc(image, &list) == QERR_OK) {
    for (std::uint32_t i = 0; i < list->count; ++i) total += list->entries[i].length;
  }
  check(total <= size);
  blib_bin_free_authenticode_signature_buf(list);
  blib_res_section section{};
  if (blib_res_get_section(image, &section) != QERR_OK) return;
  for (const std::uint32_t type : {BLIB_RES_VERSION, BLIB_RES_MANIFEST}) {
    std::uint32_t stop = 0;
    std::uint64_t visits = 0;
    (void)blib_res_walk(image, &section, type, visit, &stop, &visits, sizeof visits);
    check(visits * 16 <= size * 4 + 262144);
  }
}

}  // namespace

void fuzz(Bytes input) {
  memory_file file(input);
  for (const std::uint32_t flags : {BLIB_READ, BLIB_READ | BLIB_READ_NOT_MAP}) {
    blib_bin* image = nullptr;
    if (blib_bin_open_by_handle(&file, u"", &image, flags, 0) != QERR_OK) continue;
    const BlibBinByHandleOwner owner(image);
    read_image(image, input.size());
  }
  (void)blib_bin_is_16bit_by_handle(&file);
}
