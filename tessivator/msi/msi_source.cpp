#include "msi/msi_source.h"

#include <algorithm>
#include <limits>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"

namespace {

class file_source final : public msi_source {
 public:
  [[nodiscard]] bool open(const qchar* path) noexcept {
    return qfile_open(file_.out(), path, QFILE_READ) == QERR_OK && qfile_size(file_.get(), &size_) == QERR_OK;
  }
  [[nodiscard]] std::uint64_t size() const noexcept override { return size_; }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override;

 private:
  QfileOwner file_;
  std::uint64_t size_ = 0;
};

bool file_source::read(std::uint64_t offset, std::span<std::byte> out) noexcept {
  if (offset > size_ || out.size() > size_ - offset) return false;
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return false;
  std::uint64_t position = 0;
  if (qfile_seek(file_.get(), static_cast<std::int64_t>(offset), QFILE_FROM_START, &position) != QERR_OK) return false;
  // Every turn takes at least one byte, or ends.
  while (!out.empty()) {
    const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(out.size(), 1U << 20));
    std::uint32_t done = 0;
    if (qfile_read(file_.get(), out.data(), wanted, &done) != QERR_OK || done == 0 || done > wanted) return false;
    out = out.subspan(done);
  }
  return true;
}

}  // namespace

std::shared_ptr<msi_source> msi_open_file(const qchar* path) {
  auto file = std::make_shared<file_source>();
  if (!file->open(path)) return nullptr;
  return file;
}

Bytes msi_window::at(std::uint64_t offset, std::size_t length) noexcept {
  if (length > piece) return {};
  if (offset < start_ || offset - start_ > filled_ || length > filled_ - static_cast<std::size_t>(offset - start_)) {
    if (offset > source_.size() || length > source_.size() - offset) return {};
    const auto available = static_cast<std::size_t>(std::min<std::uint64_t>(piece, source_.size() - offset));
    filled_ = 0;
    if (!source_.read(offset, std::span(buffer_).first(available))) return {};
    start_ = offset;
    filled_ = available;
  }
  return Bytes(buffer_).subspan(static_cast<std::size_t>(offset - start_), length);
}
