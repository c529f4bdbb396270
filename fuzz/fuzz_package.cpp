// A package's compound file, string pool, Property table and signature stream, from memory.
#include <cstdlib>
#include <cstring>
#include <string>

#include "budget.h"
#include "common/qlib/qerr.h"
#include "msi/package_object.h"
#include "msi/property_table.h"
#include "msi/signature_stream.h"

namespace {

class memory final : public msi_source {
 public:
  explicit memory(Bytes bytes) noexcept : bytes_(bytes) {}
  [[nodiscard]] std::uint64_t size() const noexcept override { return bytes_.size(); }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override {
    if (offset > bytes_.size() || out.size() > bytes_.size() - offset) return false;
    std::memcpy(out.data(), bytes_.data() + offset, out.size());
    return true;
  }

 private:
  Bytes bytes_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const budget spent(size);
  const auto file = std::make_shared<memory>(std::as_bytes(std::span(data, size)));
  const auto package = compound_file::open(file);
  if (!package) return 0;
  (void)package->has_whole_streams(MSI_TABLE_MARK);
  if (const auto table = property_table::open(*package)) {
    std::u16string value;
    for (const char* name : {"ProductName", "Manufacturer", "ProductVersion"}) {
      // A text is never longer than the bytes that it was made from.
      if (table->value(name, value) == property_result::found && value.size() > size) std::abort();
    }
  }
  QmemPtr<std::byte> signature;
  std::uint32_t length = 0;
  if (signature_stream_read(*package, signature, length) == QERR_OK && (length == 0 || length > size + 4096))
    std::abort();
  return 0;
}
