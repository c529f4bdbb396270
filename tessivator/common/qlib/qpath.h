// Paths as text: separators, roots, and the parts of a path to a share.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// The separator of a path: a backslash on Windows and in any path that starts with two backslashes, else a slash.
[[nodiscard]] qchar qpath_separator(const qchar* path) noexcept;
// The separator of the platform: backslash or slash.
[[nodiscard]] qchar qpath_native_separator() noexcept;
// True for a path on a share: two leading backslashes.
[[nodiscard]] bool qpath_is_unc(const qchar* path) noexcept;
// True for exactly two characters, the second a colon (never on Linux); on Linux true for "/".
[[nodiscard]] bool qpath_is_bare_drive(const qchar* path) noexcept;
// Whether an empty directory stands for the root of the current drive: on Windows, where a path may begin with its
// separator and name no drive.
[[nodiscard]] bool qpath_empty_is_root() noexcept;
// `directory`, its separator, `name`. The separator is always added: an empty directory gives separator and name. May
// throw std::bad_alloc.
[[nodiscard]] std::u16string qpath_join(std::u16string_view directory, std::u16string_view name);

// The characters after the last period of the last path component, or null when it has none. The component starts after
// the last separator of the path (qpath_separator).
[[nodiscard]] const qchar* qstr_extension(const qchar* path) noexcept;

// The parts of "\\server\share\rest", also in the extended form "\\?\UNC\server\share\rest". They point into the path.
struct qpath_share {
  std::u16string_view root;  // from the path's start to the end of the share's name
  std::u16string_view server;
  std::u16string_view share;
  std::u16string_view rest;  // what follows the root: nothing, or a separator and more
};
// False, with `parts` unchanged, unless the path names a server and a share. A device path ("\\?\C:\dir") has this form
// too: its root is that of the volume.
[[nodiscard]] bool qpath_parse_share(std::u16string_view path, qpath_share& parts) noexcept;
