// Plain paths, short forms and copies.
#include <array>
#include <utility>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qsys_winnt_user.h"
#include "msi/msi_path_winnt.h"
#include "msi/package_object.h"

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

// Whether the readers open under `path` the file that lies there.
bool is_left_as_it_is(const std::u16string& path) {
  std::wstring full;
  return path.size() < MAX_PATH && qsys_full_path(path.c_str(), full) && qsys_units(full) == path;
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

std::shared_ptr<msi_system_path> msi_system_path::of(msi_package& package) {
  auto& kept = package.system_path();
  if (kept) return kept;
  auto path = std::make_shared<msi_system_path>();
  if (!path->find(package.path().c_str())) return nullptr;
  return kept = std::move(path);
}

bool msi_system_path::find(const qchar* path) {
  const std::wstring source = qsys_extended_path(path);
  text_ = qsys_shown_path(source);
  if (is_left_as_it_is(text_)) return true;
  const std::u16string short_form =
      text_from([&](wchar_t* out, DWORD size) { return GetShortPathNameW(source.c_str(), out, size); });
  text_ = qsys_shown_path(qsys_wide(short_form.c_str()));
  if (is_left_as_it_is(text_)) return true;
  text_ = temporary_name();
  is_copy_ = !text_.empty();
  return is_copy_ && qfile_copy(qsys_units(source).data(), text_.c_str(), 0) == QERR_OK;
}
