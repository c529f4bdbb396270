#include "blib/blib_authenticode.h"

#include <algorithm>

#include "common/qlib/qbytes.h"

namespace {

constexpr std::uint64_t checksum_offset = 24 + 64;  // from the NT headers on
constexpr std::uint64_t directories_32 = 24 + 96;
constexpr std::uint64_t directories_64 = 24 + 112;
constexpr std::uint64_t directory_size = 8;
constexpr std::uint64_t alignment = 8;

}  // namespace

qerr_t blib_authenticode::begin(const blib_bin* image, std::uint32_t kinds) noexcept {
  if (image == nullptr) return QERR_ARG1;
  std::uint32_t address = 0;
  std::uint32_t length = 0;
  const qerr_t code = blib_bin_get_directory(image, BLIB_DIRECTORY_SECURITY, &address, &length);
  if (code != QERR_OK) return code;
  const std::uint64_t headers = qbytes_le<std::uint32_t>(image->view, 60).value_or(0);
  const std::uint64_t directory =
      headers + (image->is_64bit ? directories_64 : directories_32) + BLIB_DIRECTORY_SECURITY * directory_size;
  size_ = image->full_size;
  position_ = 0;
  const bool has_table = address != 0 && length != 0 && address < size_;
  is_padded_ = has_table;
  const std::uint64_t table = has_table ? address : size_;
  skipped_ = {{{headers + checksum_offset, headers + checksum_offset + 4},
               {directory, directory + directory_size},
               {table, has_table ? table + length : table}}};
  std::sort(skipped_.begin(), skipped_.end(), [](const range& a, const range& b) { return a.begin < b.begin; });
  return digests_.begin(kinds);
}

void blib_authenticode::take(Bytes bytes) noexcept {
  for (const range& skipped : skipped_) {
    const std::uint64_t before = skipped.begin > position_ ? skipped.begin - position_ : 0;
    const Bytes digested = bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(before, bytes.size())));
    if (!digested.empty()) digests_.update(digested);
    bytes = bytes.subspan(digested.size());
    position_ += digested.size();
    const std::uint64_t inside = skipped.end > position_ ? skipped.end - position_ : 0;
    const auto passed = static_cast<std::size_t>(std::min<std::uint64_t>(inside, bytes.size()));
    bytes = bytes.subspan(passed);
    position_ += passed;
  }
  if (!bytes.empty()) digests_.update(bytes);
  position_ += bytes.size();
}

qerr_t blib_authenticode::finish(std::uint8_t kind, qcksum* digest) noexcept {
  if (position_ != size_) return QERR_INVALID;
  if (!is_padded_) {
    constexpr std::array<std::byte, alignment> zeros{};
    digests_.update(Bytes(zeros).first(static_cast<std::size_t>((alignment - size_ % alignment) % alignment)));
    is_padded_ = true;
  }
  return digests_.finish(kind, digest);
}
