// Short forms of long paths.
#include <array>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qsys_winnt_user.h"
#include "msi/msi_path_winnt.h"

namespace {

// The text that `call` writes into a buffer of given capacity; empty when it fails.
template <class Call>
std::u16string text_from(Call call) {
  std::u16string text(MAX_PATH, u'\0');
  const auto ask = [&] { return call(qsys_wide(text.data()), static_cast<DWORD>(text.size())); };
  DWORD length = ask();
  if (length > text.size()) {
    text.resize(length);
    length = ask();
  }
  text.resize(length < text.size() ? length : 0);
  return text;
}

// A name of our own in the temporary folder, already taken by an empty file; empty when there is none.
std::u16string temporary_name() {
  const std::u16string folder = text_from([](wchar_t* out, DWORD size) { return GetTempPathW(size, out); });
  std::array<wchar_t, MAX_PATH> name{};
  if (folder.empty() || GetTempFileNameW(qsys_wide(folder.c_str()), L"pkg", 0, name.data()) == 0) return {};
  return std::u16string(qsys_units(name.data()));
}

}  // namespace

msi_system_path::~msi_system_path() {
  if (is_copy_) (void)qfile_delete(text_.c_str());
}

bool msi_system_path::find(const qchar* path) {
  const std::u16string given = qsys_shown_path(qsys_wide(path));
  const std::u16string full = text_from(
      [&](wchar_t* out, DWORD size) { return GetFullPathNameW(qsys_wide(given.c_str()), size, out, nullptr); });
  text_ = given;
  if (full.size() < MAX_PATH && given.size() < MAX_PATH) return true;
  const std::wstring source = qsys_extended_path(full.c_str());
  const std::u16string short_form =
      text_from([&](wchar_t* out, DWORD size) { return GetShortPathNameW(source.c_str(), out, size); });
  text_ = qsys_shown_path(qsys_wide(short_form.c_str()));
  if (!text_.empty() && text_.size() < MAX_PATH) return true;
  text_ = temporary_name();
  is_copy_ = !text_.empty();
  return is_copy_ && qfile_copy(path, text_.c_str(), 0) == QERR_OK;
}
