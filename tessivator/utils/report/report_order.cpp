#include "utils/report/report_order.h"

#include <algorithm>
#include <charconv>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qpath.h"

namespace {

constexpr std::uint32_t most_parts = 65536;

// Takes pieces off the front of a text.
class Taker {
 public:
  explicit Taker(std::string_view text) noexcept : rest_(text) {}
  bool literal(std::string_view wanted) noexcept {
    if (!rest_.starts_with(wanted)) return false;
    rest_.remove_prefix(wanted.size());
    return true;
  }
  template <class Number>
  bool number(Number& number) noexcept {
    const auto [end, failure] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return failure == std::errc();
  }
  bool hex(std::size_t length, std::string_view& digits) noexcept {
    digits = rest_.substr(0, length);
    rest_.remove_prefix(digits.size());
    return digits.size() == length && std::all_of(digits.begin(), digits.end(), [](char c) {
             return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
  }
  [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

 private:
  std::string_view rest_;
};

bool readWhole(const std::u16string& path, std::uint64_t most, std::string& text) {
  QfileOwner file;
  std::uint64_t size = 0;
  if (qfile_open(file.out(), path.c_str(), QFILE_READ | QFILE_NO_FOLLOW) != QERR_OK ||
      qfile_size(file.get(), &size) != QERR_OK || size > most) {
    return false;
  }
  text.resize(static_cast<std::size_t>(size));
  std::size_t have = 0;
  std::uint32_t done = 1;
  while (done != 0 && have < text.size()) {
    const auto rest = static_cast<std::uint32_t>(std::min<std::size_t>(text.size() - have, std::size_t{1} << 30U));
    if (qfile_read(file.get(), text.data() + have, rest, &done) != QERR_OK) return false;
    have += done;
  }
  return have == text.size();
}

}  // namespace

ReportOrder::State ReportOrder::read(const std::u16string& folder, std::uint64_t most) {
  const std::u16string path = qpath_join(folder, u"order");
  if (!qfile_exists(path.c_str())) return State::missing;
  return readWhole(path, most, text_) && check() ? State::good : State::damaged;
}

bool ReportOrder::check() noexcept {
  Taker taker(text_);
  if (!taker.literal("brantle-order 1\npart ") || !taker.number(part_) || !taker.literal("/") ||
      !taker.number(parts_) || !taker.literal("\n") || part_ < 1 || part_ > parts_ || parts_ > most_parts) {
    return false;
  }
  at_ = text_.size() - taker.rest().size();
  std::uint64_t least = 0;
  while (!taker.literal("end ")) {
    std::uint64_t ordinal = 0;
    if (!taker.number(ordinal) || !taker.literal("\n") || ordinal < least) return false;
    least = ordinal + 1;
    if (least == 0) return false;
  }
  return taker.number(files_) && taker.literal(" ") && taker.hex(16, paths_) && taker.literal(" ") &&
         taker.hex(64, report_) && taker.rest() == "\n" && least <= files_;
}

bool ReportOrder::next(std::uint64_t& ordinal) noexcept {
  const char* const begin = text_.data() + at_;
  const auto [end, failure] = std::from_chars(begin, text_.data() + text_.size(), ordinal);
  if (failure != std::errc()) return false;
  at_ += static_cast<std::size_t>(end - begin) + 1;
  return true;
}
