#include "utl/utl.h"

#include <span>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "record/inv_record.h"
#include "record/inv_version.h"

static constexpr std::uint32_t module_id = QLOG_UTL;

namespace {

constexpr std::u16string_view open_tag = u"<description>";
constexpr std::u16string_view close_tag = u"</description>";

constexpr std::u16string_view install_word = u"install";
constexpr std::u16string_view setup_word = u"setup";
constexpr std::u16string_view exe_word = u".exe";
// Descriptions that makers of installers use, in lower case like the text they are compared with.
constexpr std::u16string_view archive_description = u"winrar sfx module";
constexpr std::u16string_view bootstrapper_description = u"wix toolset bootstrapper";

// Null contains no word.
bool contains(const qchar* text, std::u16string_view word) noexcept {
  return text != nullptr && std::u16string_view(text).find(word) != std::u16string_view::npos;
}

void lower(qchar* text) noexcept {
  if (text != nullptr) qstr_lower_ascii(text);
}

// All three names are folded to lower case, whichever of them decides.
void lower_names(inv_cfci_t& record) noexcept {
  lower(record.OriginalFilename);
  lower(record.FileDescription);
  lower(record.InternalName);
}

bool names_exe(const inv_cfci_t& record, qchar* path) noexcept {
  if (contains(record.OriginalFilename, exe_word)) return true;
  qstr_lower_ascii(path);
  return contains(path, exe_word);
}

// A word that tells an installer, in a text of the record that has lost its case.
struct installer_rule {
  qchar* inv_cfci_t::*field;
  std::u16string_view word;
  const char* name;
};
// OriginalFilename is not searched for "setup": too many tools that are no installers have such a name.
constexpr installer_rule name_rules[] = {
    {&inv_cfci_t::OriginalFilename, install_word, "original_filename_install"},
    {&inv_cfci_t::FileDescription, install_word, "file_description_install"},
    {&inv_cfci_t::FileDescription, setup_word, "file_description_setup"},
    {&inv_cfci_t::InternalName, install_word, "internal_name_install"},
    {&inv_cfci_t::InternalName, setup_word, "internal_name_setup"},
};
constexpr installer_rule manifest_rules[] = {
    {&inv_cfci_t::manifest_description, install_word, "manifest_install"},
    {&inv_cfci_t::manifest_description, setup_word, "manifest_setup"},
    {&inv_cfci_t::manifest_description, archive_description, "manifest_archive"},
    {&inv_cfci_t::manifest_description, bootstrapper_description, "manifest_bootstrapper"},
};

// Whether one of `rules` holds; the first that does is named in the record.
bool is_installer(std::span<const installer_rule> rules, inv_cfci_t& record) noexcept {
  for (const installer_rule& rule : rules) {
    if (!contains(record.*rule.field, rule.word)) continue;
    record.installer_rule = rule.name;
    return true;
  }
  return false;
}

}  // namespace

qchar* utl_get_ManifestDescription(const qchar* manifest) noexcept {
  const std::u16string_view text = manifest == nullptr ? std::u16string_view() : std::u16string_view(manifest);
  const std::size_t tag = text.find(open_tag);
  if (tag == std::u16string_view::npos) {
    QLOG(QLOG_INFO, u"utl_get_ManifestDescription - description not found");
    return nullptr;
  }
  const std::u16string_view rest = text.substr(tag + open_tag.size());
  const std::size_t length = rest.find(close_tag);
  if (length == std::u16string_view::npos) {
    QLOG(QLOG_INFO, u"utl_get_ManifestDescription - close description not found");
    return nullptr;
  }
  auto* const description = static_cast<qchar*>(qmem_alloc((length + 1) * sizeof(qchar)));
  if (description == nullptr) {
    QLOG(QLOG_ERROR, u"utl_get_ManifestDescription - error allocating memory");
    return nullptr;
  }
  rest.copy(description, length);
  description[length] = 0;
  return description;
}

qerr_t utl_manifest_clbk(std::uint32_t /*type_id*/, const void* data, std::uint32_t size, std::uint32_t /*language_id*/,
                         std::uint32_t* stop, void* context, std::size_t context_size) noexcept {
  if (context_size != sizeof(inv_cfci_t) || context == nullptr) {
    QLOG(QLOG_ERROR, u"utl_manifest_clbk - invalid inv_cfci_t size");
    return QERR_INVALID;
  }
  auto& record = *static_cast<inv_cfci_t*>(context);
  // The resource has no terminator; two zero bytes make it a string. It is at most 8000 bytes long.
  const QmemPtr<char> narrow(static_cast<char*>(qmem_calloc(std::size_t{size} + 2, 1)));
  if (!narrow) {
    QLOG(QLOG_ERROR, u"utl_manifest_clbk - error allocating buffer memory");
    return QERR_LOW_MEMORY;
  }
  if (size != 0) qmem_copy(narrow.get(), data, size);
  const std::size_t wide_bytes = 2 * std::size_t{size} + 2;
  const QmemPtr<qchar> wide(static_cast<qchar*>(qmem_calloc(wide_bytes, 1)));
  if (!wide) {
    QLOG(QLOG_ERROR, u"utl_manifest_clbk - error allocating manifest memory");
    return QERR_LOW_MEMORY;
  }
  if (qstr_from_ascii(wide.get(), wide_bytes, narrow.get()) == nullptr) {
    QLOG(QLOG_INFO, u"utl_manifest_clbk - error atoq conversion");
    return QERR_LOW_MEMORY;
  }
  qmem_free(record.manifest_description);
  record.manifest_description = utl_get_ManifestDescription(wide.get());
  *stop = 1;
  return QERR_OK;
}

std::uint32_t utl_is_installer_heuristic(qchar* path, blib_bin* image, inv_cfci_t* record) noexcept {
  QLOG(QLOG_INFO, u"utl_is_installer_heuristic");
  if (path == nullptr || image == nullptr || record == nullptr) {
    QLOG(QLOG_ERROR, u"utl_is_installer_heuristic null paramter");
    return 0;
  }
  blib_res_section section{};
  if (const qerr_t code = blib_res_get_section(image, &section); code != QERR_OK) {
    QLOG(QLOG_INFO, u"Failed to get resource section. err = %d", code);
    return 0;
  }

  std::uint32_t stop = 0;
  if (const qerr_t code =
          blib_res_walk(image, &section, BLIB_RES_VERSION, utl_res_clbk, &stop, record, sizeof(*record));
      code != QERR_OK) {
    QLOG(QLOG_INFO, u"Failed to lookup resource for VERSION_ID. err = %d", code);
  } else {
    const qchar* const extension = qstr_extension(path);
    if (extension == nullptr || !qstr_equal_nocase(extension, u"exe")) return 0;
    if (record->OriginalFilename != nullptr) {
      QLOG(QLOG_DETAIL, u"utl_is_installer_heuristic - original_fname:%s", record->OriginalFilename);
    }
    if (record->FileDescription != nullptr) {
      QLOG(QLOG_DETAIL, u"utl_is_installer_heuristic - file_description:%s", record->FileDescription);
    }
    if (record->InternalName != nullptr) {
      QLOG(QLOG_DETAIL, u"utl_is_installer_heuristic - internal_name:%s", record->InternalName);
    }
    lower_names(*record);
    if (!names_exe(*record, path)) {
      QLOG(QLOG_INFO, u"utl_is_installer_heuristic - is not an .exe");
      return 0;
    }
    if (is_installer(name_rules, *record)) return 1;
  }

  if (const qerr_t code =
          blib_res_walk(image, &section, BLIB_RES_MANIFEST, utl_manifest_clbk, &stop, record, sizeof(*record));
      code != QERR_OK) {
    QLOG(QLOG_INFO, u"Failed to lookup resource for MANIFEST_ID. err = %d", code);
    return 0;
  }
  if (record->manifest_description == nullptr) return 0;
  QLOG(QLOG_DETAIL, u"utl_is_installer_Heuristic - manifestDescription:%s", record->manifest_description);
  qstr_lower_ascii(record->manifest_description);
  return is_installer(manifest_rules, *record) ? 1 : 0;
}

std::uint32_t utl_is_installer_cfci(qchar* path, blib_bin* image, inv_cfci_t* record) noexcept {
  if (path != nullptr) QLOG(QLOG_INFO, u"utl_is_installer_cfci - %s", path);
  const std::uint32_t answer = utl_is_installer_heuristic(path, image, record);
  QLOG(QLOG_INFO, u"utl_is_installer_cfci - returns:0x%x", answer);
  return answer;
}
