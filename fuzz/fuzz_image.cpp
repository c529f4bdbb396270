// Images: open, certificate table, resource walk, and the readers of versions and manifests, which get the input itself
// as a resource, too. Whatever the bytes, nothing comes out that the file does not hold, and the walk costs no more
// than a few times the file.
#include "blib/blib_bin_16bit.h"
#include "blib/blib_cert.h"
#include "blib/blib_res.h"
#include "common/qlib/qstr.h"
#include "inv/inv_cfci.h"
#include "record/inv_version.h"
#include "record/version_facts.h"
#include "support/memory_file.h"
#include "target.h"
#include "utl/utl.h"

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

// Version facts stay inside their limits, and hold no more text than they were read from.
void check_facts(const record_version_facts& facts, std::size_t most_units) {
  check(facts.tables.size() <= RECORD_MOST_VERSION_TABLES);
  std::size_t units = 0;
  for (const record_version_table& table : facts.tables) {
    check(table.values.size() <= RECORD_MOST_VERSION_VALUES);
    for (const auto& [name, value] : table.values) {
      check(std::max(name.size(), value.size()) <= RECORD_MOST_VERSION_UNITS);
      units += name.size() + value.size();
    }
  }
  check(units <= most_units);
}

// Has `read` fill a record: no string is longer than the input, and none but a single character ends with a blank.
template <class Read>
void read_record(std::size_t size, Read&& read) {
  const InvCfciOwner owner(static_cast<inv_cfci_t*>(qmem_calloc(1, sizeof(inv_cfci_t))));
  inv_cfci_t& r = *owner;
  read(&r);
  for (const qchar* text : {r.CompanyName, r.FileVersion, r.ProductName, r.ProductVersion, r.OriginalFilename,
                            r.FileDescription, r.InternalName}) {
    const std::size_t length = qstr_len(text);
    check(length <= size / 2 && (length < 2 || text[length - 1] != u' '));
  }
  check(qstr_len(r.manifest_description) <= size);
}

}  // namespace

void fuzz(Bytes input) {
  memory_file file(input);
  for (const std::uint32_t flags : {BLIB_READ, BLIB_READ | BLIB_READ_NOT_MAP}) {
    blib_bin* image = nullptr;
    if (blib_bin_open_by_handle(&file, u"", &image, flags, 0) != QERR_OK) continue;
    const BlibBinByHandleOwner owner(image);
    read_image(image, input.size());
    record_version_facts facts;
    (void)record_get_version_facts(image, facts);
    check_facts(facts, input.size() * 2 + 131072);
    read_record(input.size(), [&](inv_cfci_t* record) { (void)inv_get_resource_data(u"fuzz.exe", image, record); });
  }
  (void)blib_bin_is_16bit_by_handle(&file);
  record_version_facts facts;
  record_add_version(input, facts);
  check_facts(facts, input.size() / 2);
  read_record(input.size(), [&](inv_cfci_t* record) {
    const auto size = static_cast<std::uint32_t>(input.size());
    std::uint32_t stop = 0;
    (void)utl_res_clbk(16, input.data(), size, 0, &stop, record, sizeof(inv_cfci_t));
    (void)utl_manifest_clbk(24, input.data(), size, 0, &stop, record, sizeof(inv_cfci_t));
  });
}
