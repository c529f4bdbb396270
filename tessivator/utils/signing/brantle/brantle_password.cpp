#include "utils/signing/brantle/brantle_password.h"

#include <string_view>
#include <vector>

#include "common/qlib/qmem.h"
#include "common/qlib/qstr_name.h"

bool brantle_password_read(const std::u16string& path, std::u16string& password) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  std::vector<char> buffer(16384);
  const std::ptrdiff_t size = brantle_password_fetch(path, buffer);
  if (size >= 0) {
    std::string_view line(buffer.data(), static_cast<std::size_t>(size));
    const std::size_t end = line.find('\n');
    const bool whole = end != std::string_view::npos || line.size() < buffer.size();
    line = line.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.starts_with(byte_order_mark)) line.remove_prefix(byte_order_mark.size());
    if (whole) password = qstr_name_from_bytes(line);
    qmem_wipe(buffer.data(), buffer.size());
    return whole;
  }
  return false;
}
