// Installer detection: recognises a setup program by the strings of its version resource and the description in its
// application manifest. The result is a heuristic; nothing here fails the caller.
#pragma once

#include "blib/blib_res.h"
#include "common/qlib/qtypes.h"

struct inv_cfci_t;

// 1 when the image is an installer or a self-extracting archive, else 0. Fills the record's version strings, its
// manifest description, and the rule that decided: "original_filename_install", "file_description_install",
// "file_description_setup", "internal_name_install", "internal_name_setup", "manifest_install", "manifest_setup",
// "manifest_archive" or "manifest_bootstrapper". Folds A-Z in place: when the path's extension is exe, the record's
// OriginalFilename, FileDescription and InternalName and, unless the first of them names an .exe, the buffer `path`;
// also the manifest description when it is looked at. So the caller hands in a copy of a path that it still needs.
[[nodiscard]] std::uint32_t utl_is_installer_cfci(qchar* path, blib_bin* image, inv_cfci_t* record) noexcept;
// The same without log lines about the call itself.
[[nodiscard]] std::uint32_t utl_is_installer_heuristic(qchar* path, blib_bin* image, inv_cfci_t* record) noexcept;

// The text between the first "<description>" and the next "</description>". The caller frees it with qmem_free. Null
// when there is none, or when memory runs out.
[[nodiscard]] qchar* utl_get_ManifestDescription(const qchar* manifest) noexcept;

// Resource visitor for manifests; the two caller values are an inv_cfci_t* and its size. Stores the description of a
// 7-bit manifest in the record and ends the walk. QERR_INVALID for another size, QERR_LOW_MEMORY, also
// for a byte of 128 or more.
[[nodiscard]] qerr_t utl_manifest_clbk(std::uint32_t type_id, const void* data, std::uint32_t size,
                                       std::uint32_t language_id, std::uint32_t* stop, void* context,
                                       std::size_t context_size) noexcept;
