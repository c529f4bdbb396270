// What the program shows of a scan at work: one line on standard error, and one of totals at the end.
#pragma once

#include <chrono>

#include "utils/signing/brantle/brantle.h"

// Shows itself when standard error is a terminal; BRANTLE_PROGRESS=1 shows it anywhere, BRANTLE_PROGRESS=0 nowhere.
class BrantleProgress final : public BrantleObserver {
 public:
  BrantleProgress();
  void onFile(const std::u16string& path, const BrantleTotals& totals) noexcept override;
  // Erases the line and writes the totals.
  void finish(const BrantleTotals& totals) noexcept;

 private:
  using Clock = std::chrono::steady_clock;

  void show(const std::u16string& path, const BrantleTotals& totals);
  void erase();

  bool shown_;
  Clock::time_point started_;
  Clock::time_point next_;   // no line is written before
  std::size_t columns_ = 0;  // that the line on the screen takes
};
