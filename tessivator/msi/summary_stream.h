// A package's summary information: the stream "\005SummaryInformation", a property set stream ([MS-OLEPS]) whose first
// set is looked at.
#pragma once

#include <optional>
#include <vector>

#include "msi/compound_file.h"

// The type of a text (VT_LPSTR).
inline constexpr std::uint32_t MSI_SUMMARY_TEXT = 30;

class summary_stream {
 public:
  enum class result : std::uint8_t { found, absent, damaged };

  // Looks at every property of the stream; may throw std::bad_alloc, as all of these. Damaged: the stream or a property
  // is cut, or there are more than a writer puts there.
  [[nodiscard]] result open(compound_file& package);
  // Gets at most `most` bytes of the text of property `number`, with its terminator if there is one. Damaged: it cannot
  // be read, or is no text.
  [[nodiscard]] result text(std::uint32_t number, std::uint32_t most, std::vector<std::byte>& bytes);
  // Whether it has nothing but what the installer itself writes: numbers, times, and texts with a terminator. Some
  // releases of it end the process over anything else.
  [[nodiscard]] bool is_plain() const noexcept { return is_plain_; }
  // Of all texts; 0 when it is not told.
  [[nodiscard]] std::uint32_t code_page() const noexcept { return code_page_; }

 private:
  struct property {
    std::uint32_t number = 0;
    std::uint32_t type = 0;
    std::uint64_t place = 0;   // of the value, behind its type; of a text, behind its length
    std::uint32_t length = 0;  // of a text, in bytes
  };

  [[nodiscard]] bool read_set(msi_window& window, std::uint64_t start);
  [[nodiscard]] bool read_property(msi_window& window, std::uint64_t place, property& out);

  std::unique_ptr<msi_source> stream_;
  std::vector<property> properties_;
  std::uint32_t code_page_ = 0;
  bool is_plain_ = true;
};
