#include "blib/blib_res.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "common/qlib/qbytes.h"
#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;

namespace {

constexpr std::uint32_t kDirectory = 16;
constexpr std::uint32_t kEntry = 8;
constexpr std::uint32_t kDataEntry = 16;
constexpr std::uint32_t kSubdirectory = 0x80000000;

// Reads of the resource section, which are many and small: a window spares most of them the system call. Bytes past the
// end of the file read as zero, as in every range read of an image.
class ResourceReader {
 public:
  explicit ResourceReader(blib_bin& image) noexcept : image_(image) {}

  qerr_t read(std::uint64_t offset, std::byte* destination, std::uint32_t length) noexcept {
    std::memset(destination, 0, length);
    if (offset >= image_.full_size || offset > 0xFFFFFFFF) return QERR_OK;
    // What the image already holds of the file needs no read: small images have their whole tree there.
    if (const auto held = qbytes_slice(image_.view, offset, length)) {
      std::memcpy(destination, held->data(), length);
      return QERR_OK;
    }
    if (length > window_.size()) {
      return blib_bin_get_buf(&image_, destination, static_cast<std::uint32_t>(offset), length);
    }
    if (!filled_ || offset < start_ || offset - start_ > window_.size() - length) {
      const qerr_t code = fill(offset);
      if (code != QERR_OK) return code;
    }
    std::memcpy(destination, window_.data() + (offset - start_), length);
    return QERR_OK;
  }

 private:
  qerr_t fill(std::uint64_t offset) noexcept {
    window_.fill(std::byte{0});
    filled_ = false;
    const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(window_.size(), image_.full_size - offset));
    const qerr_t code = blib_bin_get_buf(&image_, window_.data(), static_cast<std::uint32_t>(offset), length);
    start_ = offset;
    filled_ = code == QERR_OK;
    return code;
  }

  blib_bin& image_;
  std::array<std::byte, 4096> window_;  // filled before it is read
  std::uint64_t start_ = 0;
  bool filled_ = false;
};

struct Directory {
  std::array<std::byte, kDirectory> header{};
  std::vector<std::byte> entries;  // as far as the file holds them
  std::uint32_t count = 0;

  // Entries that the file does not hold read as zero.
  [[nodiscard]] std::uint32_t id(std::uint32_t i) const { return field(i, 0); }
  [[nodiscard]] std::uint32_t offset(std::uint32_t i) const { return field(i, 4); }

 private:
  [[nodiscard]] std::uint32_t field(std::uint32_t i, std::uint32_t at) const {
    return qbytes_le<std::uint32_t>(entries, std::uint64_t{i} * kEntry + at).value_or(0);
  }
};

qerr_t read_directory(ResourceReader& reader, const blib_bin& image, std::uint64_t offset, Directory& out) {
  qerr_t code = reader.read(offset, out.header.data(), kDirectory);
  if (code != QERR_OK) return code;
  const Bytes header(out.header);
  out.count = std::uint32_t{qbytes_le<std::uint16_t>(header, 12).value_or(0)} +
              qbytes_le<std::uint16_t>(header, 14).value_or(0);
  if (out.count == 0) {
    QLOG_AS(QLOG_INFO, "blib_res_get_dir_entry", u"blib_res_get_dir_entry - dir_entry_alloc_size is zero");
    return QERR_LOW_MEMORY;
  }
  const std::uint64_t start = offset + kDirectory;
  const std::uint64_t exists = start < image.full_size ? image.full_size - start : 0;
  const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(std::uint64_t{out.count} * kEntry, exists));
  out.entries.resize(length);
  return length == 0 ? QERR_OK : reader.read(start, out.entries.data(), length);
}

// One walk. Directories of a hostile tree may point to themselves, to each other, or all to one child; with 65,535
// entries on each of three levels that is 2^48 visits. So the whole walk is charged for what it reads: 16 bytes a
// directory, 8 an entry, 16 and the data a resource. An honest tree reads each byte of the file once, or a few times
// where names share a directory; the walk may cost four times the file's size, and 64 KiB for the smallest files.
class Walk {
 public:
  Walk(blib_bin& image, const blib_res_section& section, std::uint32_t type_id, blib_res_visitor visitor,
       std::uint32_t* stop, void* context, std::size_t context_size) noexcept
      : image_(image),
        reader_(image),
        section_(section),
        type_id_(type_id),
        visitor_(visitor),
        stop_(stop),
        context_(context),
        context_size_(context_size),
        budget_(image.full_size * 4 + 65536) {}

  qerr_t run() {
    root_ = to_offset(section_.directory_address);
    Directory root;
    const qerr_t code = read_level(0, root);
    if (code != QERR_OK) return code;
    for (std::uint32_t i = 0; i < root.count; ++i) {
      if ((root.offset(i) & kSubdirectory) != 0 && root.id(i) == type_id_) return walk_names(root.offset(i));
    }
    return QERR_NOT_FOUND;
  }

 private:
  static constexpr std::int64_t kNowhere = -1;

  // A file offset outside 32 bits lies outside every image; it reads as zero like any other place past the end.
  [[nodiscard]] std::int64_t to_offset(std::uint32_t rva) const noexcept {
    const std::int64_t offset = std::int64_t{rva} - section_.header.virtual_address + section_.header.raw_pointer;
    return offset < 0 || offset > 0xFFFFFFFF ? kNowhere : offset;
  }
  [[nodiscard]] std::uint64_t in_tree(std::uint32_t offset) const noexcept {
    return root_ == kNowhere ? image_.full_size : static_cast<std::uint64_t>(root_) + (offset & ~kSubdirectory);
  }

  [[nodiscard]] bool charge(std::uint64_t bytes) noexcept {
    if (bytes > budget_) {
      QLOG_AS(QLOG_INFO, "blib_res_walk", u"resource tree of \"%s\" refers to itself\n", image_.file_name);
      return false;
    }
    budget_ -= bytes;
    return true;
  }

  qerr_t read_level(std::uint32_t offset, Directory& out) {
    const qerr_t code = read_directory(reader_, image_, in_tree(offset), out);
    if (code != QERR_OK) return code;
    return charge(kDirectory + std::uint64_t{out.count} * kEntry) ? QERR_OK : QERR_OVERFLOW;
  }

  qerr_t walk_names(std::uint32_t offset) {
    Directory names;
    qerr_t code = read_level(offset, names);
    for (std::uint32_t i = 0; code == QERR_OK && i < names.count; ++i) {
      if ((names.offset(i) & kSubdirectory) == 0) continue;
      code = walk_languages(names.offset(i));
      if (*stop_ == 1) break;
    }
    return code;
  }

  qerr_t walk_languages(std::uint32_t offset) {
    Directory languages;
    qerr_t code = read_level(offset, languages);
    for (std::uint32_t i = 0; code == QERR_OK && i < languages.count; ++i) {
      if ((languages.offset(i) & kSubdirectory) != 0) continue;
      code = visit(languages.offset(i), languages.id(i) & 0xFFFF);
      if (*stop_ == 1) break;
    }
    return code;
  }

  qerr_t visit(std::uint32_t offset, std::uint32_t language_id) {
    *stop_ = 0;
    std::array<std::byte, kDataEntry> entry;
    qerr_t code = reader_.read(in_tree(offset), entry.data(), kDataEntry);
    if (code != QERR_OK) return code;
    const Bytes fields(entry);
    const std::int64_t place = to_offset(qbytes_le<std::uint32_t>(fields, 0).value_or(0));
    // Larger sizes and negative ones are cut alike.
    const std::uint32_t size = std::min(qbytes_le<std::uint32_t>(fields, 4).value_or(0), BLIB_RES_MOST_BYTES);
    if (!charge(kDataEntry + size)) return QERR_OVERFLOW;
    if (data_.empty()) data_.resize(BLIB_RES_MOST_BYTES);
    code = reader_.read(place == kNowhere ? image_.full_size : static_cast<std::uint64_t>(place), data_.data(), size);
    return code != QERR_OK ? code : visitor_(type_id_, data_.data(), size, language_id, stop_, context_, context_size_);
  }

  blib_bin& image_;
  ResourceReader reader_;
  const blib_res_section& section_;
  std::uint32_t type_id_;
  blib_res_visitor visitor_;
  std::uint32_t* stop_;
  void* context_;
  std::size_t context_size_;
  std::uint64_t budget_;
  std::int64_t root_ = kNowhere;
  std::vector<std::byte> data_;
};

QmemPtr<std::byte> copy_of(const std::byte* bytes, std::size_t size, std::size_t padded) noexcept {
  QmemPtr<std::byte> copy(static_cast<std::byte*>(qmem_calloc(1, padded)));
  if (copy != nullptr && size != 0) std::memcpy(copy.get(), bytes, size);
  return copy;
}

}  // namespace

qerr_t blib_res_get_section(blib_bin* image, blib_res_section* section) noexcept {
  if (image == nullptr || section == nullptr) return QERR_ALL_BITS;
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  (void)blib_bin_get_directory(image, BLIB_DIRECTORY_RESOURCE, &address, &size);
  blib_section header{};
  for (std::uint32_t i = 0; blib_bin_get_section(image, i, &header); ++i) {
    const std::uint64_t end = std::uint64_t{header.virtual_address} + std::max(header.virtual_size, header.raw_size);
    if (header.virtual_address <= address && address < end) {
      *section = {header, address};
      return QERR_OK;
    }
  }
  return QERR_NOT_FOUND;
}

qerr_t blib_res_get_dir_entry(blib_bin* image, std::uint32_t offset, std::byte** directory,
                              std::byte** entries) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (directory == nullptr) return QERR_ARG3;
  if (entries == nullptr) return QERR_ARG4;
  *directory = nullptr;
  *entries = nullptr;
  try {
    ResourceReader reader(*image);
    Directory found;
    const qerr_t code = read_directory(reader, *image, offset, found);
    if (code != QERR_OK) return code;
    // At most 1 MiB, as 16-bit counts allow.
    auto head = copy_of(found.header.data(), kDirectory, kDirectory);
    auto list = copy_of(found.entries.data(), found.entries.size(), std::size_t{found.count} * kEntry);
    if (head == nullptr || list == nullptr) return QERR_LOW_MEMORY;
    *directory = head.release();
    *entries = list.release();
    return QERR_OK;
  } catch (const std::bad_alloc&) {
    return QERR_LOW_MEMORY;
  }
}

qerr_t blib_res_walk(blib_bin* image, const blib_res_section* section, std::uint32_t type_id, blib_res_visitor visitor,
                     std::uint32_t* stop, void* context, std::size_t context_size) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (section == nullptr) return QERR_ARG2;
  if (visitor == nullptr) return QERR_ARG4;
  if (stop == nullptr) return QERR_ARG5;
  *stop = 0;
  try {
    return Walk(*image, *section, type_id, visitor, stop, context, context_size).run();
  } catch (const std::bad_alloc&) {
    return QERR_LOW_MEMORY;
  }
}
