#include "msi/summary_stream.h"

#include <algorithm>

#include "common/qlib/qbytes.h"

// Stream: 0 byte order (FFFE)   24 number of sets   28 identifier of the first set   44 its offset
// Set: 0 size   4 number of properties   8 the properties: number and offset in the set
// Property: 0 type   4 value; of a text its length in bytes, and the bytes
namespace {

constexpr std::u16string_view stream_name =
    u"\x0005"
    u"SummaryInformation";
constexpr std::uint16_t byte_order = 0xFFFE;
constexpr std::size_t header_size = 48;
constexpr std::uint32_t most_properties = 256;
constexpr std::uint32_t number_code_page = 1;
constexpr std::uint32_t type_16_bit = 2;
constexpr std::uint32_t type_32_bit = 3;
constexpr std::uint32_t type_time = 64;

// Bytes that a value of the type has at least; 0 for a type that the installer does not write.
std::size_t least_size(std::uint32_t type) noexcept {
  if (type == type_time) return 8;
  return type == type_16_bit || type == type_32_bit || type == MSI_SUMMARY_TEXT ? 4 : 0;
}

}  // namespace

summary_stream::result summary_stream::open(compound_file& package) {
  stream_ = package.stream(stream_name);
  if (!stream_) return package.has_content(stream_name) ? result::damaged : result::absent;
  if (stream_->size() == 0) return result::absent;
  msi_window window(*stream_);
  const Bytes header = window.at(0, header_size);
  const auto sets = qbytes_le<std::uint32_t>(header, 24);
  const auto start = qbytes_le<std::uint32_t>(header, 44);
  if (qbytes_le<std::uint16_t>(header, 0) != byte_order || !sets || !start) return result::damaged;
  if (*sets == 0) return result::absent;
  return read_set(window, *start) ? result::found : result::damaged;
}

bool summary_stream::read_set(msi_window& window, std::uint64_t start) {
  const auto count = qbytes_le<std::uint32_t>(window.at(start, 8), 4);
  if (!count || *count > most_properties) return false;
  for (std::uint32_t i = 0; i < *count; ++i) {
    ByteReader entry(window.at(start + 8 + std::uint64_t{8} * i, 8));
    property at;
    std::uint32_t offset = 0;
    if (!entry.le(at.number) || !entry.le(offset) || !read_property(window, start + offset, at)) return false;
    properties_.push_back(at);
  }
  return true;
}

bool summary_stream::read_property(msi_window& window, std::uint64_t place, property& out) {
  if (!ByteReader(window.at(place, 4)).le(out.type)) return false;
  out.place = place + 4;
  const std::size_t size = least_size(out.type);
  const Bytes value = window.at(out.place, size);
  if (value.size() != size) return false;
  const std::uint32_t word = qbytes_le<std::uint32_t>(value, 0).value_or(0);
  if (out.number == number_code_page && out.type == type_16_bit) code_page_ = word & 0xFFFF;
  is_plain_ = is_plain_ && size != 0 && (out.type != MSI_SUMMARY_TEXT || word != 0);
  if (out.type != MSI_SUMMARY_TEXT) return true;
  out.place += size;
  out.length = word;
  return out.length <= stream_->size() - out.place;
}

summary_stream::result summary_stream::text(std::uint32_t number, std::uint32_t most, std::vector<std::byte>& bytes) {
  const auto at = std::ranges::find(properties_, number, &property::number);
  if (at == properties_.end()) return result::absent;
  if (at->type != MSI_SUMMARY_TEXT) return result::damaged;
  std::vector<std::byte> text(std::min(at->length, most));
  if (!stream_->read(at->place, text)) return result::damaged;
  bytes = std::move(text);
  return result::found;
}
