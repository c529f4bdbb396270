#include "utl/utl_user.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qreplaceable.h"
#include "common/qlib/qstr.h"
#include "utl/utl_system.h"

static constexpr std::uint32_t module_id = QLOG_UTL;

// Functions that use containers can only fail when memory runs out.

namespace {

constexpr const qchar* service_key = u"SYSTEM\\CurrentControlSet\\Services\\kovane";
constexpr const qchar* service_key_shown = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\kovane";
constexpr const qchar* image_path = u"ImagePath";

qreplaceable<utl_system> replaceable_system;

utl_system& the_system() noexcept { return replaceable_system.get(utl_platform_system()); }

using text_owner = QmemPtr<qchar>;

text_owner copy_of(std::u16string_view text) noexcept {
  text_owner copy(static_cast<qchar*>(qmem_calloc(text.size() + 1, sizeof(qchar))));
  if (copy) std::memcpy(copy.get(), text.data(), text.size() * sizeof(qchar));
  return copy;
}

qerr_t hand_out(std::u16string_view text, qchar** result) noexcept {
  text_owner copy = copy_of(text);
  if (!copy) return QERR_LOW_MEMORY;
  *result = copy.release();
  return QERR_OK;
}

// Cuts `part` at one separator after the other, from its end, until the rest exists; false when nothing exists.
bool cut_to_existing(std::u16string& part, qchar separator) {
  while (!part.empty()) {
    const std::size_t cut = part.rfind(separator);
    if (cut == std::u16string::npos) return false;
    part.resize(cut);
    // Only the separators of a share or root remain.
    if (part.find_first_not_of(separator) == std::u16string::npos) return false;
    if (qfile_exists(part.c_str())) return true;
  }
  return false;
}

// "C:" alone would mean the drive's current directory.
void complete_drive(std::u16string& path) {
  if (qpath_native_separator() == u'\\' && path.ends_with(u':')) path += u'\\';
}

// The long form of `existing`, followed by `remainder`.
qerr_t long_form(const qchar* path, const text_owner& existing, const text_owner& remainder, qchar** result) {
  utl_system& system = the_system();
  std::uint32_t units = 0;
  std::uint32_t error = system.long_name(existing.get(), nullptr, units);
  if (error != 0) {
    const qerr_t code = system.translate(error);
    QLOG(QLOG_INFO, u"GetLongPathName() failed for: file %s: err %d (0x%x): %s", existing.get(), code, code,
         qerr_get_string(code));
    return hand_out(path, result);
  }
  std::u16string form(units, u'\0');
  error = system.long_name(existing.get(), form.data(), units);
  if (error != 0) return error;  // untranslated, on purpose
  form.resize(qstr_len(form.c_str()));
  if (remainder) {
    const qchar separator = qpath_separator(path);
    if (!form.ends_with(separator) && remainder.get()[0] != separator) form += separator;
    form += remainder.get();
  }
  return hand_out(form, result);
}

}  // namespace

void utl_set_system(utl_system* system) noexcept { replaceable_system.replace(system); }

qerr_t utl_split_existing_path(const qchar* path, qchar** existing, qchar** remainder) noexcept try {
  if (existing == nullptr) return path == nullptr ? QERR_ARG1 : QERR_ARG2;
  *existing = nullptr;
  if (remainder == nullptr) return path == nullptr ? QERR_ARG1 : QERR_ARG3;
  *remainder = nullptr;
  if (path == nullptr) return QERR_ARG1;
  const std::u16string_view whole(path);
  std::u16string part(whole);
  text_owner rest;
  if (!qfile_exists(path)) {
    if (!cut_to_existing(part, qpath_separator(path))) return QERR_OK;
    rest = copy_of(whole.substr(part.size() + 1));
    if (!rest) return QERR_LOW_MEMORY;
  }
  complete_drive(part);
  const qerr_t code = hand_out(part, existing);
  if (code == QERR_OK) *remainder = rest.release();
  return code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t utl_get_long_name_alloc(const qchar* path, qchar** result, std::uint32_t tag) noexcept try {
  (void)tag;
  if (path == nullptr) return QERR_ARG1;
  if (result == nullptr) return QERR_ARG2;
  *result = nullptr;
  std::u16string start(path);
  if (qpath_is_bare_drive(path)) complete_drive(start);
  qchar* existing = nullptr;
  qchar* remainder = nullptr;
  const qerr_t code = utl_split_existing_path(start.c_str(), &existing, &remainder);
  const text_owner existing_owner(existing);
  const text_owner remainder_owner(remainder);
  if (code != QERR_OK) return code;
  return existing == nullptr ? hand_out(path, result) : long_form(path, existing_owner, remainder_owner, result);
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t utl_get_full_long_name_alloc(const qchar* path, qchar** result) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (result == nullptr) return QERR_ARG2;
  *result = nullptr;
  std::uint32_t units = 0;
  qerr_t code = qfile_full_path(path, nullptr, &units);
  // An empty path has no full form.
  if (code != QERR_BUFFER_SMALL) return code == QERR_OK ? QERR_INVALID : code;
  text_owner full(static_cast<qchar*>(qmem_calloc(units, sizeof(qchar))));
  if (!full) return QERR_LOW_MEMORY;
  code = qfile_full_path(path, full.get(), &units);
  if (code == QERR_NOT_FOUND) {
    full = copy_of(path);
    if (!full) return QERR_LOW_MEMORY;
  } else if (code != QERR_OK) {
    return code;
  }
  if (utl_get_long_name_alloc(full.get(), result, 0) != QERR_OK) *result = full.release();
  return QERR_OK;
}

qerr_t utl_get_volume_path_alloc(const qchar* path, qchar** result) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (result == nullptr) return QERR_ARG2;
  *result = nullptr;
  qchar* name = nullptr;
  qerr_t code = utl_get_full_long_name_alloc(path, &name);
  const text_owner name_owner(name);
  if (code != QERR_OK) return code;
  if (qpath_is_unc(name)) {
    qpath_share parts;
    if (!qpath_parse_share(name, parts)) return QERR_INVALID;
    return hand_out(std::u16string(parts.root) + u'\\', result);
  }
  std::u16string start(name);
  if (qpath_is_bare_drive(name)) complete_drive(start);
  std::u16string root;
  code = the_system().volume_path(start.c_str(), root);
  return code == QERR_OK ? hand_out(root, result) : code;
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t utl_get_install_dir_alloc(qchar** result) noexcept try {
  if (result == nullptr) return QERR_INVALID;
  *result = nullptr;
  utl_system& system = the_system();
  std::uint32_t bytes = 0;
  qerr_t code = system.registry_text(service_key, image_path, nullptr, bytes);
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Unable to get data size for registry value %s\\%s: err %d (0x%x): %s\n", service_key_shown,
         image_path, code, code, qerr_get_string(code));
    return code;
  }
  std::u16string text(bytes / sizeof(qchar) + 1, u'\0');
  code = system.registry_text(service_key, image_path, text.data(), bytes);
  if (code != QERR_OK) {
    QLOG(QLOG_ERROR, u"Unable to get registry value %s\\%s: err %d (0x%x): %s\n", service_key_shown, image_path, code,
         code, qerr_get_string(code));
    return code;
  }
  text.resize(qstr_len(text.c_str()));
  const std::size_t cut = text.rfind(u'\\');
  if (cut == std::u16string::npos) return QERR_ALL_BITS;
  text.resize(cut);
  if (text.starts_with(u'"')) text.erase(0, 1);
  return hand_out(text, result);
} catch (...) {
  return QERR_LOW_MEMORY;
}

qerr_t utl_get_file_info(const qchar* path, qfile_info* info) noexcept { return qfile_get_info_by_name(path, info); }
