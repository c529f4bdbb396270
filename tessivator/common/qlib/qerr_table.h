// The fixed tables behind qerr.h.
#pragma once

#include <array>

#include "common/qlib/qtypes.h"

struct qerr_message {
  std::uint32_t code;
  const qchar* text;
};

struct qerr_translation {
  std::uint32_t value;
  qerr_t code;
};

inline constexpr std::size_t QERR_MESSAGE_COUNT = 216;
inline constexpr std::size_t QERR_WIN32_COUNT = 82;

// Both sorted by their first member.
extern const std::array<qerr_message, QERR_MESSAGE_COUNT> qerr_messages;
extern const std::array<qerr_translation, QERR_WIN32_COUNT> qerr_win32_table;
