#include "scan/scan_filetype.h"

#include "blib/blib_bin_16bit.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qreplaceable.h"
#include "common/qlib/qstr.h"

static constexpr std::uint32_t module_id = QLOG_SCAN;

namespace {

constexpr qerr_t known_script = QERR_EXISTS;

bool never() { return false; }
qerr_t unknown(const qchar*) { return QERR_NOT_FOUND; }
constexpr scan_sa no_database = {never, unknown};
qreplaceable<const scan_sa> database;

// A driver is recognised by its file name alone, whatever its characteristics say.
std::uint32_t kind_of(const blib_bin& image, const qchar* name) noexcept {
  const std::u16string_view text(name);
  const std::size_t dot = text.rfind(u'.');
  if (dot != text.npos && qstr_equal_nocase(text.substr(dot), u".sys")) return SCAN_KIND_DRIVER;
  const std::uint16_t characteristics = blib_bin_characteristics(&image);
  if ((characteristics & BLIB_FILE_DLL) != 0) return SCAN_KIND_DLL;
  return (characteristics & BLIB_FILE_EXECUTABLE) != 0 ? SCAN_KIND_EXE : SCAN_KIND_OTHER;
}

qerr_t classify(qfile_t file, const qchar* name, std::uint32_t flags, std::uint32_t* type, std::uint32_t* kind,
                blib_bin** image) noexcept {
  *type = SCAN_TYPE_NONE;
  *kind = SCAN_KIND_OTHER;
  *image = nullptr;
  if (name == nullptr || file == QFILE_INVALID) return QERR_ARG1;
  const qerr_t opened = blib_bin_open_by_handle(file, name, image, BLIB_READ | flags, 0);
  if (opened == QERR_OK) {
    *type = (*image)->is_64bit ? SCAN_TYPE_IMAGE64 : SCAN_TYPE_IMAGE32;
    *kind = kind_of(**image, name);
    return QERR_OK;
  }
  if (opened == QERR_NOT_FOUND) return QERR_OK;
  if (scan_is_file_script_by_handle(file, name, false) == 0) return QERR_BAD_IMAGE;
  *type = SCAN_TYPE_SCRIPT;
  return QERR_OK;
}

}  // namespace

void scan_set_sa(const scan_sa* own) noexcept { database.replace(own); }

std::uint32_t scan_is_file_script_by_handle(qfile_t file, const qchar* name, bool image_opened) noexcept {
  const scan_sa& scripts = database.get(no_database);
  if (!scripts.is_initialised()) {
    QLOG(QLOG_INFO, u"Failed to determine if file '%s' is a script, as sa is Not inited.", name);
    return 0;
  }
  if (image_opened) return 0;
  const qchar* key = blib_bin_is_16bit_by_handle(file) == 1 ? u"16bit" : qstr_extension(name);
  return key != nullptr && scripts.lookup(key) == known_script ? 1 : 0;
}

qerr_t scan_get_file_type_by_handle(qfile_t file, const qchar* name, std::uint32_t read_not_map, std::uint32_t* type,
                                    std::uint32_t* kind) noexcept {
  if (type == nullptr) return QERR_ARG4;
  if (kind == nullptr) return QERR_ARG5;
  blib_bin* image = nullptr;
  const qerr_t code = classify(file, name, read_not_map != 0 ? BLIB_READ_NOT_MAP : 0, type, kind, &image);
  (void)blib_bin_close_by_handle(image);
  return code;
}

qerr_t scan_get_file_type_keep_image(qfile_t file, const qchar* name, std::uint32_t* type, std::uint32_t* kind,
                                     blib_bin** image) noexcept {
  if (type == nullptr) return QERR_ARG3;
  if (kind == nullptr) return QERR_ARG4;
  if (image == nullptr) return QERR_ARG5;
  return classify(file, name, 0, type, kind, image);
}
