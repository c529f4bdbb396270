#include "common/qlib/qpath.h"

#include <algorithm>

#include "common/qlib/qstr.h"

qchar qpath_separator(const qchar* path) noexcept { return qpath_is_unc(path) ? u'\\' : qpath_native_separator(); }

bool qpath_is_unc(const qchar* path) noexcept { return path != nullptr && path[0] == u'\\' && path[1] == u'\\'; }

std::u16string qpath_join(std::u16string_view directory, std::u16string_view name) {
  const bool unc = directory.starts_with(u"\\\\");
  std::u16string path;
  path.reserve(directory.size() + 1 + name.size());
  path.append(directory).push_back(unc ? u'\\' : qpath_native_separator());
  path.append(name);
  return path;
}

const qchar* qstr_extension(const qchar* path) noexcept {
  if (path == nullptr) return nullptr;
  const qchar separator = qpath_separator(path);
  const qchar* extension = nullptr;
  for (const qchar* unit = path; *unit != 0; ++unit) {
    if (*unit == separator) extension = nullptr;
    if (*unit == u'.') extension = unit + 1;
  }
  return extension;
}

bool qpath_parse_share(std::u16string_view path, qpath_share& parts) noexcept {
  if (!path.starts_with(u"\\\\")) return false;
  constexpr std::u16string_view extended = u"\\\\?\\UNC\\";
  // Compared without its last separator: "\\?\UNC" alone has no server and is no volume.
  const bool is_extended = qstr_equal_nocase(path.substr(0, path.find(u'\\', 4)), extended.substr(0, 7));
  const std::size_t start = is_extended ? extended.size() : 2;
  const std::size_t server = path.find(u'\\', start);
  if (server == path.npos || server == start) return false;
  const std::size_t share = std::min(path.find(u'\\', server + 1), path.size());
  if (share == server + 1) return false;
  parts = {path.substr(0, share), path.substr(start, server - start), path.substr(server + 1, share - server - 1),
           path.substr(share)};
  return true;
}
