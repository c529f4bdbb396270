// Prints the information record of each file that is named on standard input, one line each, for comparison with
// other readers: path, code, type, kind, signed, SHA-1, SHA-256, size, then the seven version strings. Columns are
// separated by tabs; a unit that is not printable ASCII, or a backslash, stands as \uXXXX; a missing string as "-".
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "inv/inv_cfci.h"

namespace {

std::string shown(const qchar* text) {
  if (text == nullptr) return "-";
  std::string out = "=";
  for (; *text != 0; ++text) {
    if (*text >= u' ' && *text <= u'~' && *text != u'\\') {
      out += static_cast<char>(*text);
    } else {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(*text));
      out += escape;
    }
  }
  return out;
}

std::string shown(const qcksum& digest) {
  qchar text[QCKSUM_SHA256_TEXT] = {};
  (void)qcksum_to_qstr(text, sizeof(text), &digest);
  return qstr_to_utf8(text);
}

void dump(const std::string& path) {
  inv_cfci_t* made = nullptr;
  const qerr_t code = inv_get_cfci_alloc(qstr_to_wide(path).c_str(), &made, nullptr, 1);
  const InvCfciOwner record(made);
  std::cout << path << '\t' << code;
  if (record) {
    std::cout << '\t' << record->type_flags << '\t' << record->image_kind << '\t' << record->is_signed << '\t'
              << shown(record->sha1) << '\t' << shown(record->sha256) << '\t' << record->file_size;
    for (const qchar* text : {record->CompanyName, record->FileVersion, record->ProductName, record->ProductVersion,
                              record->OriginalFilename, record->FileDescription, record->InternalName}) {
      std::cout << '\t' << shown(text);
    }
  }
  std::cout << '\n';
}

}  // namespace

int main() {
  if (qlib_lib_init_basic() != 0) return 1;
  qlog_console_off();
  qlib_set_standalone(true);
  for (std::string path; std::getline(std::cin, path);) dump(path);
  qlib_lib_fini_basic();
  return 0;
}
