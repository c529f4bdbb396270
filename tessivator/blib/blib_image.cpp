#include "blib/blib_image.h"

#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;
#undef QLOG_SOURCE
#define QLOG_SOURCE "blib_bin.cpp"

qerr_t blib_bin_get_buf(blib_bin* image, void* destination, std::uint32_t offset, std::uint32_t length) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (destination == nullptr) return QERR_ARG2;
  qerr_t code = qfile_seek(image->file, offset, QFILE_FROM_START, nullptr);
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Failed to seek to offset %d. File=\"%s\". err=%d (%s)", offset, image->file_name, code,
         qerr_get_string(code));
    return code;
  }
  // Storage may return fewer bytes than asked for; only zero bytes mean the end of the file.
  std::uint32_t total = 0;
  std::uint32_t done = 1;
  while (code == QERR_OK && total < length && done != 0) {
    done = 0;
    code = qfile_read(image->file, static_cast<std::byte*>(destination) + total, length - total, &done);
    total += done;
  }
  if (code != QERR_OK && total != length) {
    QLOG(QLOG_ERROR, u"Failed to read %d bytes from \"%s\" at offset %d. err=%d (%s)\n", length, image->file_name,
         offset, code, qerr_get_string(code));
  }
  return code;
}
