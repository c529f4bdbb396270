// Windows only: the path under which the system's package readers open a file.
#pragma once

#include <memory>
#include <string>

#include "common/qlib/qtypes.h"

class msi_package;

// The readers take plain paths of fewer than 260 units, and the system changes such a path before it opens the file: a
// period or blank at a component's end is dropped, and "nul.msi" is a device. So the path itself serves only where the
// system leaves it as it is. Else the file's short form serves, on the same condition, or a copy in the temporary
// folder. (A hard link would cost less, but removing one to a file that is read-only means changing that file.)
class msi_system_path {
 public:
  msi_system_path() = default;
  msi_system_path(const msi_system_path&) = delete;
  msi_system_path& operator=(const msi_system_path&) = delete;
  ~msi_system_path();  // removes the copy
  // The path for `package`, found once: properties and signature share a copy. Null when there is none. May throw
  // std::bad_alloc.
  [[nodiscard]] static std::shared_ptr<msi_system_path> of(msi_package& package);
  [[nodiscard]] const std::u16string& text() const noexcept { return text_; }

 private:
  [[nodiscard]] bool find(const qchar* path);

  std::u16string text_;
  bool is_copy_ = false;
};
