// Windows only: the path under which the system's package readers open a file.
#pragma once

#include <string>

#include "common/qlib/qtypes.h"

// The readers take plain paths of fewer than 260 units. What lies deeper is reached by its short names, or through a
// copy in the temporary folder where the volume keeps none. (A hard link would cost less, but removing one to a file
// that is read-only means changing that file.)
class msi_system_path {
 public:
  msi_system_path() = default;
  msi_system_path(const msi_system_path&) = delete;
  msi_system_path& operator=(const msi_system_path&) = delete;
  ~msi_system_path();  // removes the copy
  // Finds the path for the file at `path`; false when there is none. May throw std::bad_alloc.
  [[nodiscard]] bool find(const qchar* path);
  [[nodiscard]] const std::u16string& text() const noexcept { return text_; }
  [[nodiscard]] bool is_copy() const noexcept { return is_copy_; }

 private:
  std::u16string text_;
  bool is_copy_ = false;
};
