// State shared by the sources of the logger. The plain words are atomic: they may change while other threads log. All
// state is constant-initialised and is never destroyed, so logging works from the first to the last moment of the
// process.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "common/qlib/qlog.h"

inline constexpr std::uint32_t QLOG_LEVEL_COUNT = 7;
inline constexpr std::uint32_t QLOG_DEFAULT_MASK = QLOG_ERROR | QLOG_WARNING | QLOG_SYSTEM;
inline constexpr std::uint32_t QLOG_DEFAULT_FORMAT =
    QLOG_COLUMN_IDS | QLOG_COLUMN_TIME | QLOG_COLUMN_LEVEL | QLOG_COLUMN_SOURCE | QLOG_COLUMN_LINE;

struct qlog_shared {
  std::atomic<bool> initialised{false};
  std::atomic<bool> console{true};
  std::atomic<std::uint32_t> format{QLOG_DEFAULT_FORMAT};
  std::atomic<std::uint32_t> repeat_ms{60000};  // for so long equal lines count as one row
  std::array<std::atomic<std::uint32_t>, QLOG_MODULE_COUNT> masks{};
};
extern qlog_shared qlog_state;

[[nodiscard]] inline bool qlog_is_initialised() noexcept {
  return qlog_state.initialised.load(std::memory_order_acquire);
}

// Index of the highest bit of a level; 0 for 0.
[[nodiscard]] std::uint32_t qlog_level_bit_index(std::uint32_t level) noexcept;

// Resets every module to the default mask and updates the union mask.
void qlog_reset_masks() noexcept;
