// The cabinet header and the way to the signature, over arbitrary files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "budget.h"
#include "common/qlib/qerr.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_pkcs7.h"

namespace {

// One file for all inputs of this process, removed at its end.
struct InputFile {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("fuzz_cabinet." + std::to_string(std::random_device()()));
  ~InputFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const budget spent(size);
  static const InputFile input;
  std::ofstream(input.path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  sgn_p7* p7 = nullptr;
  const qerr_t code = sgn_extract_cab_cert_alloc(input.path.u16string().c_str(), &p7);
  // A file that can be read is a signed cabinet, none, or has a broken signature.
  if (code != QERR_OK && code != QERR_INVALID && code != QERR_ALL_BITS) std::abort();
  if ((p7 != nullptr) != (code == QERR_OK)) std::abort();
  if (code == QERR_OK && (size < 52 || data[0] != 'M')) std::abort();  // header, reserve fields and record
  sgn_p7_free(p7);
  return 0;
}
