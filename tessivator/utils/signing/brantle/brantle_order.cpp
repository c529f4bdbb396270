#include "utils/signing/brantle/brantle_order.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "common/qlib/qerr.h"

namespace {

constexpr std::uint64_t fnv_start = 0xcbf29ce484222325U;
constexpr std::uint64_t fnv_prime = 0x100000001b3U;
constexpr std::size_t piece = 65536;  // bytes that are gathered before they are written

std::uint64_t hashOf(std::u16string_view path) noexcept {
  std::uint64_t hash = fnv_start;
  for (const qchar unit : path) {
    hash = (hash ^ (unit & 0xFFU)) * fnv_prime;
    hash = (hash ^ (unit >> 8U)) * fnv_prime;
  }
  return hash;
}

bool readNumber(std::string_view text, std::uint32_t& number) noexcept {
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  return failure == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool BrantlePart::read(std::string_view text) noexcept {
  const std::size_t cut = text.find('/');
  BrantlePart part;
  if (cut == std::string_view::npos || !readNumber(text.substr(0, cut), part.index) ||
      !readNumber(text.substr(cut + 1), part.count)) {
    return false;
  }
  if (part.index < 1 || part.index > part.count || part.count > BRANTLE_MOST_PARTS) return false;
  *this = part;
  return true;
}

BrantleOrder::BrantleOrder(const std::u16string& path, BrantlePart part) noexcept
    : code_(file_.begin(path.c_str())), part_(part), paths_(fnv_start) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "brantle-order 1\npart %u/%u\n", part.index, part.count);
  append(text.data());
}

bool BrantleOrder::next(std::u16string_view path) noexcept {
  const std::uint64_t hash = hashOf(path);
  ++files_;
  paths_ = (paths_ ^ hash) * fnv_prime;
  return hash % part_.count == part_.index - 1;
}

void BrantleOrder::addRecord() noexcept {
  std::array<char, 24> text{};
  (void)std::snprintf(text.data(), text.size(), "%llu\n", static_cast<unsigned long long>(files_ - 1));
  append(text.data());
}

qerr_t BrantleOrder::finish(std::string_view report) noexcept {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "end %llu %016llx ", static_cast<unsigned long long>(files_),
                      static_cast<unsigned long long>(paths_));
  append(text.data());
  append(report);
  append("\n");
  drain();
  if (code_ == QERR_OK) code_ = file_.commit(true);
  file_.abandon();
  return code_;
}

void BrantleOrder::append(std::string_view line) noexcept {
  if (code_ != QERR_OK) return;
  try {
    buffer_ += line;
  } catch (...) {
    code_ = QERR_LOW_MEMORY;
  }
  if (buffer_.size() >= piece) drain();
}

void BrantleOrder::drain() noexcept {
  if (code_ == QERR_OK && !buffer_.empty()) code_ = file_.write(buffer_.data(), buffer_.size());
  buffer_.clear();
}
