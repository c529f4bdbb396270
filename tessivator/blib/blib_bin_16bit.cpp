#include "blib/blib_bin_16bit.h"

#include <algorithm>
#include <memory>

#include "common/qlib/qbytes.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;

namespace {

struct unmap {
  void operator()(const std::byte* view) const noexcept { (void)qfile_unmap(view); }
};

// Checks the signature and nothing else, on purpose.
qerr_t blib_parse_16bit_headers(Bytes view) noexcept {
  const auto magic = qbytes_le<std::uint16_t>(view, 0);
  return magic && *magic == 0x5A4D ? QERR_OK : QERR_BAD_IMAGE;
}

}  // namespace

std::uint32_t blib_bin_is_16bit_by_handle(qfile_t file) noexcept {
  std::uint64_t size = 0;
  qerr_t code = qfile_size(file, &size);
  if (code != QERR_OK) {
    QLOG(QLOG_INFO, u"Failed to get size of file. qerr = 0x%x.\n", code);
    return 0;
  }
  if (size == 0) return 0;
  const std::byte* bytes = nullptr;
  std::uint64_t mapped = 0;
  code = qfile_map(file, std::min<std::uint64_t>(size, 4096), &bytes, &mapped);
  const std::unique_ptr<const std::byte, unmap> view(bytes);
  if (code == QERR_BAD_ADDRESS) {
    QLOG(QLOG_ERROR, u"Got exception with code = 0x%x", code);
    return 0;
  }
  if (code != QERR_OK) {
    QLOG(QLOG_INFO, u"Failed to map file. qerr = 0x%x.\n", code);
    return 0;
  }
  return blib_parse_16bit_headers(Bytes(bytes, static_cast<std::size_t>(mapped))) == QERR_OK ? 1 : 0;
}
