#include "msi/msi_source.h"

#include <algorithm>
#include <limits>

#include "common/qlib/qerr.h"

namespace {

class file_source final : public msi_source {
 public:
  // Of `owned` and `borrowed` one is an open file.
  file_source(QfileOwner& owned, qfile_t borrowed) noexcept
      : owned_(owned.release()), file_(borrowed != QFILE_INVALID ? borrowed : owned_.get()) {}
  [[nodiscard]] bool open() noexcept { return qfile_size(file_, &size_) == QERR_OK; }
  [[nodiscard]] std::uint64_t size() const noexcept override { return size_; }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override;

 private:
  QfileOwner owned_;
  qfile_t file_;
  std::uint64_t size_ = 0;
};

bool file_source::read(std::uint64_t offset, std::span<std::byte> out) noexcept {
  if (offset > size_ || out.size() > size_ - offset) return false;
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return false;
  std::uint64_t position = 0;
  if (qfile_seek(file_, static_cast<std::int64_t>(offset), QFILE_FROM_START, &position) != QERR_OK) return false;
  // Every turn takes at least one byte, or ends.
  while (!out.empty()) {
    const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(out.size(), 1U << 20));
    std::uint32_t done = 0;
    if (qfile_read(file_, out.data(), wanted, &done) != QERR_OK || done == 0 || done > wanted) return false;
    out = out.subspan(done);
  }
  return true;
}

std::shared_ptr<msi_source> sized(QfileOwner& owned, qfile_t borrowed) {
  auto source = std::make_shared<file_source>(owned, borrowed);
  if (!source->open()) return nullptr;
  return source;
}

}  // namespace

std::shared_ptr<msi_source> msi_open_file(const qchar* path) {
  QfileOwner file;
  if (qfile_open(file.out(), path, QFILE_READ) != QERR_OK) return nullptr;
  return sized(file, QFILE_INVALID);
}

std::shared_ptr<msi_source> msi_borrow_file(qfile_t file) {
  QfileOwner none;
  if (file == QFILE_INVALID) return nullptr;
  return sized(none, file);
}

Bytes msi_window::at(std::uint64_t offset, std::size_t length) noexcept {
  if (length > piece_) return {};
  if (offset < start_ || offset - start_ > filled_ || length > filled_ - static_cast<std::size_t>(offset - start_)) {
    if (offset > source_.size() || length > source_.size() - offset) return {};
    const auto available = static_cast<std::size_t>(std::min<std::uint64_t>(piece_, source_.size() - offset));
    filled_ = 0;
    if (!source_.read(offset, std::span(buffer_).first(available))) {
      failed_ = true;
      return {};
    }
    start_ = offset;
    filled_ = available;
  }
  return Bytes(buffer_).subspan(static_cast<std::size_t>(offset - start_), length);
}
