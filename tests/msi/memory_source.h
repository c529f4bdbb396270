// Bytes in memory as a package's source, with a count of what was read.
#pragma once

#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "msi/msi_source.h"

class memory_source final : public msi_source {
 public:
  explicit memory_source(std::vector<std::byte> bytes) noexcept : bytes_(std::move(bytes)) {}
  explicit memory_source(std::string_view text) { assign(text); }
  [[nodiscard]] std::uint64_t size() const noexcept override { return bytes_.size(); }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override {
    if (offset > bytes_.size() || out.size() > bytes_.size() - offset) return false;
    std::memcpy(out.data(), bytes_.data() + offset, out.size());
    bytes_read += out.size();
    return true;
  }
  std::uint64_t bytes_read = 0;

 private:
  void assign(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    bytes_.assign(bytes.begin(), bytes.end());
  }
  std::vector<std::byte> bytes_;
};
