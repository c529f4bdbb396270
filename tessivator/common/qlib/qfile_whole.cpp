#include <algorithm>
#include <new>
#include <random>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qfile_provider.h"
#include "common/qlib/qpath.h"

namespace {

// Names are random, so that nobody can stand ready at one; a name that is taken all the same is tried anew.
constexpr int name_attempts = 16;

std::u16string temporary_beside(const std::u16string& path, qchar separator) {
  static constexpr char16_t digits[] = u"0123456789abcdef";
  const std::size_t cut = path.rfind(separator);
  std::u16string name = cut == std::u16string::npos ? std::u16string() : path.substr(0, cut + 1);
  name += u".brantle-";
  std::random_device source;
  for (int word = 0; word < 2; ++word) {
    std::uint32_t bits = source();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) name += digits[bits & 15U];
  }
  return name += u".tmp";
}

// A file that is removed again unless it was put in its place.
class temporary_file {
 public:
  explicit temporary_file(qfile_provider& provider) noexcept : provider_(provider) {}
  temporary_file(const temporary_file&) = delete;
  temporary_file& operator=(const temporary_file&) = delete;
  ~temporary_file() {
    file_.reset();
    if (!exists_) return;
    try {
      (void)provider_.remove(name_.c_str());
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory even for the name, and nothing else to do
    }
  }

  qsys_status create(const std::u16string& target, qchar separator) {
    qsys_status status;
    for (int attempt = 0; attempt < name_attempts; ++attempt) {
      name_ = temporary_beside(target, separator);
      status = provider_.create_exclusive(name_.c_str(), file_);
      exists_ = status.ok();
      if (status.condition != qsys_condition::already_exists) break;
    }
    return status;
  }

  qsys_status fill(const std::byte* bytes, std::size_t size) noexcept {
    constexpr std::size_t largest_write = std::size_t{1} << 30U;
    while (size > 0) {
      std::uint32_t done = 0;
      const auto part = static_cast<std::uint32_t>(std::min(size, largest_write));
      const qsys_status status = file_->write(bytes, part, done);
      if (!status.ok()) return status;
      if (done == 0 || done > part) return {QERR_IO, qsys_condition::none};
      bytes += done;
      size -= done;
    }
    return {};
  }

  qsys_status flush() noexcept { return file_->flush(); }

  qsys_status put_at(const qchar* target) {
    file_.reset();
    const qsys_status status = provider_.rename(name_.c_str(), target);
    if (status.ok()) exists_ = false;
    return status;
  }

 private:
  qfile_provider& provider_;
  std::u16string name_;
  std::unique_ptr<qfile_object> file_;
  bool exists_ = false;
};

}  // namespace

qerr_t qfile_write_whole(const qchar* path, const void* bytes, std::size_t size, std::uint32_t flush) noexcept try {
  if (path == nullptr) return QERR_ARG1;
  if (bytes == nullptr && size > 0) return QERR_ARG2;
  temporary_file file(qfile_provider_for(path));
  qsys_status status = file.create(path, qpath_separator(path));
  if (status.ok()) status = file.fill(static_cast<const std::byte*>(bytes), size);
  if (status.ok() && flush != 0) status = file.flush();
  if (status.ok()) status = file.put_at(path);
  return status.code;
} catch (...) {
  return QERR_LOW_MEMORY;  // also for a system without random numbers
}
