// The progress line of a running scan on standard error, and the totals at its end.
#pragma once

#include <chrono>
#include <string>

#include "common/qlib/qfile.h"
#include "utils/signing/brantle/brantle.h"

// Active when standard error is a terminal; BRANTLE_PROGRESS=1 enables it anywhere, BRANTLE_PROGRESS=0 nowhere.
class BrantleProgress final : public BrantleObserver, private qfile_watcher {
 public:
  // With `certsOnly` it counts files and certificates, for there are no records.
  explicit BrantleProgress(bool certsOnly);
  BrantleProgress(const BrantleProgress&) = delete;
  BrantleProgress& operator=(const BrantleProgress&) = delete;
  ~BrantleProgress() override;
  void onFile(const std::u16string& path, const BrantleTotals& totals) noexcept override;
  // Writes the totals in place of the line, with `remarks` behind them: ", interrupted".
  void finish(const BrantleTotals& totals, const std::string& remarks) noexcept;

 private:
  using Clock = std::chrono::steady_clock;

  void on_read(std::uint32_t bytes) noexcept override;
  void showWhenDue() noexcept;
  [[nodiscard]] std::u16string line() const;
  [[nodiscard]] std::string totalsText() const;
  [[nodiscard]] double seconds() const;

  bool shown_;
  bool certsOnly_;
  Clock::time_point started_;
  Clock::time_point next_;  // no line is written before
  std::u16string path_;     // of the current file
  BrantleTotals totals_;    // with the bytes of the current file
};
