// The program's own standard streams, and outputs that are no files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// Bytes as they are to standard output. False when they could not be written in full.
[[nodiscard]] bool reportPutBytes(std::string_view bytes) noexcept;

// A device or pipe that takes a result as it is written; there is nothing to replace.
class ReportDevice {
 public:
  ReportDevice() noexcept = default;
  ReportDevice(const ReportDevice&) = delete;
  ReportDevice& operator=(const ReportDevice&) = delete;
  ~ReportDevice();

  // Opens `path` if it leads to a device or pipe, through links too, or to the file behind one of our own standard
  // streams ("/dev/stdout"). Anything else stays closed and is QERR_OK as well. The code of a device that cannot be
  // opened.
  [[nodiscard]] qerr_t open(const std::u16string& path);
  [[nodiscard]] bool isOpen() const noexcept { return handle_ != closed; }
  // False when not everything could be written.
  [[nodiscard]] bool write(std::string_view bytes) noexcept;

 private:
  static constexpr std::intptr_t closed = -1;
  std::intptr_t handle_ = closed;  // a descriptor or a handle
};
