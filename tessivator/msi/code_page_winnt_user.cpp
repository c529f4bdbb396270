// Code pages by the system's own tables.
#include "common/qlib/qsys_winnt_user.h"
#include "msi/code_page.h"

bool code_page_is_known(std::uint32_t code_page) noexcept {
  return code_page == 0 || IsValidCodePage(code_page) != FALSE;
}

std::u16string code_page_decode(std::uint32_t code_page, Bytes bytes) {
  constexpr UINT latin = 1252;
  const UINT page = code_page == 0 || !code_page_is_known(code_page) ? latin : code_page;
  const auto* const source = reinterpret_cast<const char*>(bytes.data());
  const auto size = static_cast<int>(bytes.size());
  std::u16string text(bytes.size(), u'\0');  // no page makes more units than bytes
  text.resize(static_cast<std::size_t>(MultiByteToWideChar(page, 0, source, size, qsys_wide(text.data()), size)));
  return text;
}
