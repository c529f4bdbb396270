#include "blib/blib_bin.h"

#include <algorithm>
#include <new>

#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;

namespace {

constexpr std::uint64_t view_length = 8192;

// Uses the bytes that the open file keeps, without copying them.
bool borrow_view(blib_bin& image, std::uint64_t length) noexcept {
  std::uint64_t position = 0;
  if (qfile_seek(image.file, 0, QFILE_FROM_CURRENT, &position) != QERR_OK || position != 0) return false;
  const Bytes held = qfile_held(image.file);
  if (held.size() < length) return false;
  image.held = held.first(static_cast<std::size_t>(std::min<std::uint64_t>(held.size(), image.full_size)));
  image.view = held.first(static_cast<std::size_t>(length));
  return true;
}

// Fills the view with the first `length` bytes, by mapping or by reading.
qerr_t make_view(blib_bin& image, std::uint64_t length) noexcept {
  qerr_t code = QERR_OK;
  if (!image.view_is_buffer && borrow_view(image, length)) return code;
  if (image.view_is_buffer) {
    // A range read takes 32 bits; the rest of a larger file is never read.
    const auto wanted = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, 0xFFFFFFFF));
    auto* buffer = static_cast<std::byte*>(qmem_calloc(1, wanted));
    if (buffer == nullptr) return QERR_LOW_MEMORY;
    image.view = Bytes(buffer, wanted);
    code = blib_bin_get_buf(&image, buffer, 0, wanted);
  } else {
    const std::byte* bytes = nullptr;
    std::uint64_t mapped = 0;  // less than `length` when the file has shrunk since
    code = qfile_map(image.file, length, &bytes, &mapped);
    if (code == QERR_OK) image.view = Bytes(bytes, static_cast<std::size_t>(mapped));
  }
  if (code != QERR_OK && code != QERR_BAD_ADDRESS) {
    QLOG_AS(QLOG_INFO, "blib_bin_open_by_handle", u"Failed to %s %d bytes from file \"%s\".err=0x%x, string=\"%s\"\n",
            image.view_is_buffer ? u"read" : u"map", length, image.file_name, code, qerr_get_string(code));
  }
  return code;
}

qerr_t fill(blib_bin& image, const qchar* path, std::uint32_t flags) {
  if (path != nullptr) image.file_name = path;
  const qerr_t sized = qfile_size(image.file, &image.full_size);
  if (sized != QERR_OK) {
    QLOG_AS(QLOG_INFO, "blib_bin_open_by_handle", u"Failed to find the size of file \"%s\".0x%x (%s) \n",
            image.file_name, sized, qerr_get_string(sized));
    return sized;
  }
  image.file_size = static_cast<std::uint32_t>(image.full_size);
  if (image.full_size == 0) {
    QLOG_AS(QLOG_DETAIL, "blib_bin_open_by_handle", u"\"%s\" is a zero sized file\n", image.file_name);
    return QERR_EMPTY_FILE;
  }
  const std::uint64_t most = (flags & BLIB_WHOLE_FILE) != 0 ? image.full_size : view_length;
  image.view_is_buffer = (flags & BLIB_READ_NOT_MAP) != 0;
  const qerr_t viewed = make_view(image, std::min(image.full_size, most));
  if (viewed == QERR_BAD_ADDRESS) {
    // The system could not supply a page: the file is damaged or gone, so this is no image.
    QLOG_AS(QLOG_ERROR, "blib_bin_open_by_handle", u"Got exception with code = 0x%x", viewed);
    return QERR_BAD_IMAGE;
  }
  return viewed != QERR_OK ? viewed : blib_bin_parse_headers(&image);
}

// blib_bin_open for a file that may already be open.
qerr_t open_image(blib_file& opened, const qchar* path, std::uint32_t flags) noexcept {
  qerr_t code = blib_file_open(opened, path);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_INFO, "blib_bin_open", u"Failed to open file \"%s\" for mapping. err=%d, string: \"%s\"\n", path, code,
            qerr_get_string(code));
    return code;
  }
  blib_bin* image = nullptr;
  code = blib_bin_open_by_handle(opened.file.get(), path, &image, flags, 0);
  opened.image.reset(image);
  if (code != QERR_OK) {
    QLOG_AS(QLOG_INFO, "blib_bin_open", u"blib_bin_open failed for \"%s\". err=%d, string: \"%s\"\n", path, code,
            qerr_get_string(code));
  }
  return code;
}

}  // namespace

qerr_t blib_bin_open_by_handle(qfile_t file, const qchar* path, blib_bin** out, std::uint32_t flags,
                               std::uint32_t /*extra_size*/) noexcept {
  if (out != nullptr) *out = nullptr;
  if (file == QFILE_INVALID) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG3;
  const std::uint32_t mode = flags & ~(BLIB_WHOLE_FILE | BLIB_READ_NOT_MAP);
  if (mode != BLIB_READ) return QERR_ARG4;
  BlibBinByHandleOwner image(new (std::nothrow) blib_bin);
  if (image == nullptr) {
    QLOG(QLOG_ERROR, u"Failed to allocate memory for blib_bin\n");
    return QERR_LOW_MEMORY;
  }
  image->file = file;
  image->access_mode = mode;
  try {
    const qerr_t code = fill(*image, path, flags);
    if (code == QERR_OK) *out = image.release();
    return code;
  } catch (const std::bad_alloc&) {
    return QERR_LOW_MEMORY;
  }
}

qerr_t blib_file_open(blib_file& opened, const qchar* path) noexcept {
  if (path == nullptr) return QERR_ARG2;
  if (opened.file.get() == QFILE_INVALID && opened.open_code == QERR_OK) {
    opened.open_code = qfile_open(opened.file.out(), path, QFILE_READ);
  }
  return opened.open_code;
}

qerr_t blib_file_open_image(blib_file& opened, const qchar* path) noexcept {
  if (path == nullptr) return QERR_ARG2;
  return opened.image ? QERR_OK : open_image(opened, path, BLIB_READ);
}

qerr_t blib_bin_open(const qchar* path, blib_bin** out, std::uint32_t mode, std::uint32_t /*extra_size*/) noexcept {
  if (out != nullptr) *out = nullptr;
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  if ((mode & BLIB_READ_WRITE) != BLIB_READ) return QERR_ARG4;
  blib_file opened;
  const qerr_t code = open_image(opened, path, mode);
  if (code != QERR_OK) return code;
  (void)opened.file.release();  // the record owns it now
  *out = opened.image.release();
  return QERR_OK;
}

qerr_t blib_bin_close_by_handle(blib_bin* image) noexcept {
  if (image == nullptr) return QERR_OK;
  const std::unique_ptr<blib_bin> owner(image);
  if (image->view.data() == nullptr || !image->held.empty()) return QERR_OK;
  if (image->view_is_buffer) {
    qmem_free(const_cast<std::byte*>(image->view.data()));
    return QERR_OK;
  }
  const qerr_t code = qfile_unmap(image->view.data());
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Failed to unmap file \"%s\", err=0x%x, string=%s.", image->file_name, code,
         qerr_get_string(code));
  }
  return code;
}

qerr_t blib_bin_close(blib_bin* image) noexcept {
  if (image == nullptr) return QERR_OK;
  const QfileOwner file(image->file);
  const qerr_t code = blib_bin_close_by_handle(image);
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"blib_bin_close_by_handle failed, err=0x%x, string=\"%s\".", code, qerr_get_string(code));
  }
  return code;
}
