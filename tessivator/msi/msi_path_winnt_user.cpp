// Short forms of long paths.
#include <windows.h>

#include <array>
#include <string_view>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "msi/msi_path_winnt.h"

namespace {

constexpr std::u16string_view extended_mark = u"\\\\?\\";
constexpr std::u16string_view extended_share = u"\\\\?\\UNC\\";

const wchar_t* wide(const std::u16string& text) noexcept { return reinterpret_cast<const wchar_t*>(text.c_str()); }

// The text that `call` writes into a buffer of given capacity; empty when it fails.
template <class Call>
std::u16string text_from(Call call) {
  std::u16string text(MAX_PATH, u'\0');
  const auto ask = [&] { return call(reinterpret_cast<wchar_t*>(text.data()), static_cast<DWORD>(text.size())); };
  DWORD length = ask();
  if (length > text.size()) {
    text.resize(length);
    length = ask();
  }
  text.resize(length < text.size() ? length : 0);
  return text;
}

std::u16string plain(const std::u16string& path) {
  if (path.starts_with(extended_share)) return u"\\\\" + path.substr(extended_share.size());
  return path.starts_with(extended_mark) ? path.substr(extended_mark.size()) : path;
}

std::u16string extended(const std::u16string& full) {
  const bool share = full.starts_with(u"\\\\");
  return std::u16string(share ? extended_share : extended_mark) + full.substr(share ? 2 : 0);
}

// A name of our own in the temporary folder, already taken by an empty file; empty when there is none.
std::u16string temporary_name() {
  const std::u16string folder = text_from([](wchar_t* out, DWORD size) { return GetTempPathW(size, out); });
  std::array<wchar_t, MAX_PATH> name{};
  if (folder.empty() || GetTempFileNameW(wide(folder), L"pkg", 0, name.data()) == 0) return {};
  return reinterpret_cast<const qchar*>(name.data());
}

}  // namespace

msi_system_path::~msi_system_path() {
  if (is_copy_) (void)qfile_delete(text_.c_str());
}

bool msi_system_path::find(const qchar* path) {
  const std::u16string given = plain(path);
  const std::u16string full =
      text_from([&](wchar_t* out, DWORD size) { return GetFullPathNameW(wide(given), size, out, nullptr); });
  text_ = given;
  if (full.size() < MAX_PATH && given.size() < MAX_PATH) return true;
  const std::u16string source = extended(full);
  text_ = plain(text_from([&](wchar_t* out, DWORD size) { return GetShortPathNameW(wide(source), out, size); }));
  if (!text_.empty() && text_.size() < MAX_PATH) return true;
  text_ = temporary_name();
  is_copy_ = !text_.empty();
  return is_copy_ && qfile_copy(path, text_.c_str(), 0) == QERR_OK;
}
