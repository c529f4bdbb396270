// What the scan of a part writes beside its report: the file "order", by which `brantle-report merge` puts the records
// of all parts into the walk's order.
//
//   brantle-order 1
//   part 2/4
//   0                    the ordinal of each record's file among all files of the walk, from 0
//   17
//   end 4711 0123456789abcdef 9f86d081...    the walk's number of files, a digest of all their paths in order
//                                            (16 hexadecimal digits), the SHA-256 of the report
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/qlib/qfile_replacement.h"
#include "utils/signing/brantle/brantle_part.h"

class BrantleOrder {
 public:
  // Begins the file at `path`, which stays as it is until finish. Its failures are kept for finish.
  BrantleOrder(const std::u16string& path, BrantlePart part) noexcept;

  // The walk's next file, by its path below the repository: whether this part handles it. That is decided by FNV-1a (64
  // bits) of the path's UTF-16 units, low byte first, modulo the number of parts.
  [[nodiscard]] bool next(std::u16string_view path) noexcept;
  // The report has got a record of the file that came last.
  void addRecord() noexcept;
  // Puts the file in its place. `report` is the report's SHA-256 as text. QERR_OK, or the first failure's code.
  [[nodiscard]] qerr_t finish(std::string_view report) noexcept;

 private:
  void append(std::string_view line) noexcept;
  void drain() noexcept;

  qfile_replacement file_;
  qerr_t code_;
  BrantlePart part_;
  std::uint64_t files_ = 0;
  std::uint64_t paths_;
  std::string buffer_;
};
