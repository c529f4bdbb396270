// The file "order" that the scan of a part writes beside its report: where each record's file stands in the walk.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class ReportOrder {
 public:
  enum class State : std::uint8_t { missing, damaged, good };
  // Reads the folder's order and checks all of it; larger than `most` bytes it is damaged. Throws std::bad_alloc.
  [[nodiscard]] State read(const std::u16string& folder, std::uint64_t most);

  [[nodiscard]] std::uint32_t part() const noexcept { return part_; }  // from 1
  [[nodiscard]] std::uint32_t parts() const noexcept { return parts_; }
  [[nodiscard]] std::string_view report() const noexcept { return report_; }  // its SHA-256
  // Whether both parts saw the same files in the same order.
  [[nodiscard]] bool sawTheSame(const ReportOrder& other) const noexcept {
    return files_ == other.files_ && paths_ == other.paths_;
  }

  // The ordinal of the next record; false behind the last one.
  [[nodiscard]] bool next(std::uint64_t& ordinal) noexcept;

 private:
  [[nodiscard]] bool check() noexcept;

  std::string text_;
  std::size_t at_ = 0;  // of the next ordinal's line
  std::uint32_t part_ = 0;
  std::uint32_t parts_ = 0;
  std::uint64_t files_ = 0;
  std::string_view paths_;
  std::string_view report_;
};
