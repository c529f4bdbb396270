// A compound file (OLE2 storage) read through libgsf over our own file layer, so that a package on a share is read like
// one on a disk. Nothing but what is asked for is read; nothing is printed.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "msi/msi_source.h"

class compound_file {
 public:
  using class_id = std::array<std::uint8_t, 16>;  // as stored

  virtual ~compound_file() = default;
  // The class of the root storage.
  [[nodiscard]] virtual class_id root_class() const noexcept = 0;
  // The stream `utf8_name` of the root storage; null when there is none, or when it cannot be opened. It may outlive
  // this object; both are used by one thread at a time. May throw std::bad_alloc.
  [[nodiscard]] virtual std::unique_ptr<msi_source> stream(const std::string& utf8_name) = 0;
};

// Opens the compound file whose bytes are `file` (null is allowed); null when it is no compound file or is damaged. May
// throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<compound_file> compound_open(const std::shared_ptr<msi_source>& file);
