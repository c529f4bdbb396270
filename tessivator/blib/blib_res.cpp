#include "blib/blib_res.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

#include "common/qlib/qbytes.h"
#include "common/qlib/qlog.h"

static constexpr std::uint32_t module_id = QLOG_BLIB;

namespace {

constexpr std::uint32_t directory_size = 16;
constexpr std::uint32_t entry_size = 8;
constexpr std::uint32_t data_entry_size = 16;
constexpr std::uint32_t subdirectory_bit = 0x80000000;

// Reads of one walk, and what the walk may cost.
//
// Directories of a hostile tree may point to themselves, to each other, or all to one child; with 65,535 entries on
// each of three levels that is 2^48 visits. So every read is charged with the bytes that it takes from the file or from
// memory and with its own cost, and all reads together may cost four times the file's size and 256 KiB more. An honest
// tree takes each byte once or twice, more only where small files share directories or data, for which the constant is.
//
// Bytes past the end of the file read as zero, as in every range read of an image.
class resource_reader {
 public:
  explicit resource_reader(blib_bin& image) noexcept : image_(image), budget_(image.full_size * 4 + 262144) {}

  // Directories and data entries are many, small and close together: a window saves most of the system calls.
  qerr_t read_tree(std::uint64_t offset, std::byte* destination, std::uint32_t length) noexcept {
    if (length > window_.size() || !exists(offset) || !held(offset, length).empty()) {
      return read_data(offset, destination, length);
    }
    filled_ = 0;
    const std::uint32_t taken = clip(offset, static_cast<std::uint32_t>(window_.size()));
    window_.fill(std::byte{0});
    const qerr_t code = fetch(offset, window_.data(), taken);
    if (code != QERR_OK) return code;
    start_ = offset;
    filled_ = static_cast<std::uint32_t>(window_.size());
    std::memcpy(destination, window_.data(), length);
    return QERR_OK;
  }

  // The data of a resource. The window stays on the tree.
  qerr_t read_data(std::uint64_t offset, std::byte* destination, std::uint32_t length) noexcept {
    if (length == 0) return charge(call);
    if (const Bytes bytes = held(offset, length); !bytes.empty()) {
      std::memcpy(destination, bytes.data(), length);
      return charge(std::uint64_t{call} + length);
    }
    std::memset(destination, 0, length);
    return fetch(offset, destination, clip(offset, length));
  }

  // How many of `length` bytes at `offset` exist in the file.
  [[nodiscard]] std::uint32_t clip(std::uint64_t offset, std::uint32_t length) const noexcept {
    if (!exists(offset)) return 0;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(length, image_.full_size - offset));
  }

 private:
  // What a read costs beside its bytes, as many bytes as are copied in that time: here, and by the system.
  static constexpr std::uint32_t call = 64;
  static constexpr std::uint32_t system_call = 1024;

  // Offsets in an image have 32 bits; beyond that nothing exists.
  [[nodiscard]] bool exists(std::uint64_t offset) const noexcept {
    return offset < image_.full_size && offset <= 0xFFFFFFFF;
  }
  // Bytes that need no read because the open file, the view (small images have their whole tree there) or the window
  // holds them. Empty if none does.
  [[nodiscard]] Bytes held(std::uint64_t offset, std::uint32_t length) const noexcept {
    const Bytes start = image_.held.empty() ? image_.view : image_.held;
    if (const auto at_start = qbytes_slice(start, offset, length)) return *at_start;
    if (offset < start_) return {};
    return qbytes_slice(Bytes(window_).first(filled_), offset - start_, length).value_or(Bytes{});
  }
  qerr_t charge(std::uint64_t cost) noexcept {
    if (cost > budget_) {
      QLOG_AS(QLOG_INFO, "blib_res_walk", u"resource tree of \"%s\" refers to itself\n", image_.file_name);
      return QERR_OVERFLOW;
    }
    budget_ -= cost;
    return QERR_OK;
  }
  qerr_t fetch(std::uint64_t offset, std::byte* destination, std::uint32_t length) noexcept {
    const qerr_t code = charge(std::uint64_t{length == 0 ? call : system_call} + length);
    if (code != QERR_OK || length == 0) return code;
    return blib_bin_get_buf(&image_, destination, static_cast<std::uint32_t>(offset), length);
  }

  blib_bin& image_;
  std::uint64_t budget_;
  std::array<std::byte, 4096> window_;  // filled before it is read
  std::uint64_t start_ = 0;
  std::uint32_t filled_ = 0;
};

qerr_t read_directory(resource_reader& reader, std::uint64_t offset, blib_res_directory& out) {
  std::array<std::byte, directory_size> header;
  const qerr_t code = reader.read_tree(offset, header.data(), directory_size);
  if (code != QERR_OK) return code;
  out.count = std::uint32_t{qbytes_le<std::uint16_t>(header, 12).value_or(0)} +
              qbytes_le<std::uint16_t>(header, 14).value_or(0);
  if (out.count == 0) {
    QLOG_AS(QLOG_INFO, "blib_res_get_dir_entry", u"blib_res_get_dir_entry - dir_entry_alloc_size is zero");
    return QERR_LOW_MEMORY;
  }
  const std::uint64_t start = offset + directory_size;
  out.entries.resize(reader.clip(start, out.count * entry_size));
  return reader.read_tree(start, out.entries.data(), static_cast<std::uint32_t>(out.entries.size()));
}

class type_walk {
 public:
  type_walk(std::span<std::byte> buffer, blib_bin& image, const blib_res_section& section, std::uint32_t type_id,
            blib_res_visitor visitor, std::uint32_t* stop, void* context, std::size_t context_size) noexcept
      : buffer_(buffer),
        reader_(image),
        section_(section),
        type_id_(type_id),
        visitor_(visitor),
        stop_(stop),
        context_(context),
        context_size_(context_size) {}

  qerr_t run() {
    root_ = to_offset(section_.directory_address);
    blib_res_directory root;
    const qerr_t code = read_directory(reader_, in_tree(0), root);
    if (code != QERR_OK) return code;
    for (std::uint32_t i = 0; i < root.count; ++i) {
      if ((root.offset(i) & subdirectory_bit) != 0 && root.id(i) == type_id_) return walk_names(root.offset(i));
    }
    return QERR_NOT_FOUND;
  }

 private:
  // Beyond the end of any image: reads as zero.
  static constexpr std::uint64_t nowhere = std::uint64_t{1} << 62;

  [[nodiscard]] std::uint64_t to_offset(std::uint32_t rva) const noexcept {
    const std::int64_t offset = std::int64_t{rva} - section_.header.virtual_address + section_.header.raw_pointer;
    return offset < 0 ? nowhere : static_cast<std::uint64_t>(offset);
  }
  [[nodiscard]] std::uint64_t in_tree(std::uint32_t offset) const noexcept {
    return root_ + (offset & ~subdirectory_bit);
  }

  qerr_t walk_names(std::uint32_t offset) {
    blib_res_directory names;
    qerr_t code = read_directory(reader_, in_tree(offset), names);
    for (std::uint32_t i = 0; code == QERR_OK && i < names.count; ++i) {
      if ((names.offset(i) & subdirectory_bit) == 0) continue;
      code = walk_languages(names.offset(i));
      if (*stop_ == 1) break;
    }
    return code;
  }

  qerr_t walk_languages(std::uint32_t offset) {
    blib_res_directory languages;
    qerr_t code = read_directory(reader_, in_tree(offset), languages);
    for (std::uint32_t i = 0; code == QERR_OK && i < languages.count; ++i) {
      if ((languages.offset(i) & subdirectory_bit) != 0) continue;
      code = visit(languages.offset(i), languages.id(i) & 0xFFFF);
      if (*stop_ == 1) break;
    }
    return code;
  }

  qerr_t visit(std::uint32_t offset, std::uint32_t language_id) {
    *stop_ = 0;
    std::array<std::byte, data_entry_size> entry;
    qerr_t code = reader_.read_tree(in_tree(offset), entry.data(), data_entry_size);
    if (code != QERR_OK) return code;
    const Bytes fields(entry);
    const std::uint64_t place = to_offset(qbytes_le<std::uint32_t>(fields, 0).value_or(0));
    // Larger and negative sizes are cut the same way.
    const auto size = static_cast<std::uint32_t>(
        std::min<std::size_t>(qbytes_le<std::uint32_t>(fields, 4).value_or(0), buffer_.size()));
    code = reader_.read_data(place, buffer_.data(), size);
    return code != QERR_OK ? code
                           : visitor_(type_id_, buffer_.data(), size, language_id, stop_, context_, context_size_);
  }

  std::span<std::byte> buffer_;
  resource_reader reader_;
  const blib_res_section& section_;
  std::uint32_t type_id_;
  blib_res_visitor visitor_;
  std::uint32_t* stop_;
  void* context_;
  std::size_t context_size_;
  std::uint64_t root_ = nowhere;
};

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

qerr_t blib_res_get_dir_entry(blib_bin* image, std::uint32_t offset, blib_res_directory* directory) noexcept {
  if (image == nullptr) return QERR_ARG1;
  if (directory == nullptr) return QERR_ARG3;
  *directory = {};
  try {
    resource_reader reader(*image);
    blib_res_directory found;
    const qerr_t code = read_directory(reader, offset, found);
    if (code == QERR_OK) *directory = std::move(found);
    return code;
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
  std::array<std::byte, BLIB_RES_MOST_BYTES> buffer;  // filled before it is given away
  try {
    return blib_res_walk_into(buffer, *image, *section, type_id, visitor, stop, context, context_size);
  } catch (const std::bad_alloc&) {
    return QERR_LOW_MEMORY;
  }
}

qerr_t blib_res_walk_into(std::span<std::byte> buffer, blib_bin& image, const blib_res_section& section,
                          std::uint32_t type_id, blib_res_visitor visitor, std::uint32_t* stop, void* context,
                          std::size_t context_size) {
  *stop = 0;
  return type_walk(buffer, image, section, type_id, visitor, stop, context, context_size).run();
}
