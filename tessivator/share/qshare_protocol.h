// What the library and its share program say to each other through their socket pair. Each side checks every number
// that comes from the other: the program stands for a server that may be hostile, and may be of another build.
//
// A frame is a head of 16 bytes and so many bytes of payload as the head tells, all integers little-endian:
//   magic "qs" (2), version (2), kind (2), 0 (2), result (4), payload bytes (4)
// Texts are UTF-8 with their length in 2 bytes before them. Paths are relative to the share's root, cut at '/', without
// a leading one; the empty path is the root.
//
//   connect      own rights (1), server, share, domain, user, password; the answer's result is a system error value
//   open         wanted bytes (4), path         -> file (4), information, the file's first bytes, at most as wanted
//   read         file (4), offset (8), bytes (4) -> the bytes; fewer where the file ends
//   list         list (4) or 0, from (4), path  -> list (4), directory's number (8), more (1), entries in the server's
//                                                  order, the first `from` skipped: attributes (4), number (8), name
//   information  path                           -> information
//   close        file or list (4)               -> no answer
//
// Information is size (8), number (8), seconds since 1970 (8), nanoseconds (4), is a directory (1). A number tells a
// file of the server from others; 0 where it gives none. But for connect, results are errno values; ENOTCONN says that
// the server is lost, and the program ends.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "common/qlib/qbytes.h"

inline constexpr std::uint16_t QSHARE_MAGIC = 0x7371;
inline constexpr std::uint16_t QSHARE_VERSION = 2;

enum class qshare_kind : std::uint16_t { connect = 1, open, read, list, information, close };

inline constexpr std::uint32_t QSHARE_HEAD_BYTES = 16;
inline constexpr std::uint32_t QSHARE_MOST_QUESTION = std::uint32_t{256} << 10U;
inline constexpr std::uint32_t QSHARE_MOST_READ = std::uint32_t{4} << 20U;
inline constexpr std::uint32_t QSHARE_MOST_ANSWER = QSHARE_MOST_READ + 64;
inline constexpr std::uint32_t QSHARE_MOST_ENTRIES = std::uint32_t{128} << 10U;  // bytes of entries in one answer
inline constexpr std::uint32_t QSHARE_MOST_TEXT = 0xFFFF;
inline constexpr std::uint32_t QSHARE_MOST_NAMES = 1000000;  // in one directory
inline constexpr std::uint32_t QSHARE_MOST_DIRECTORIES =
    1000000;                                                    // in one session: a server can invent them without end
inline constexpr std::size_t QSHARE_MOST_REMEMBERED = 4000000;  // names of the open directories of one session

// Results of a connection attempt: the system error values that the network management interface of Windows gives.
inline constexpr std::uint32_t QSHARE_OK = 0;
inline constexpr std::uint32_t QSHARE_ACCESS_DENIED = 5;
inline constexpr std::uint32_t QSHARE_NOT_ENOUGH_MEMORY = 8;
inline constexpr std::uint32_t QSHARE_NOT_SUPPORTED = 50;
inline constexpr std::uint32_t QSHARE_BAD_NETPATH = 53;
inline constexpr std::uint32_t QSHARE_UNEXPECTED_NET_ERROR = 59;
inline constexpr std::uint32_t QSHARE_NETNAME_DELETED = 64;  // the server was there and has gone away
inline constexpr std::uint32_t QSHARE_BAD_NET_NAME = 67;
inline constexpr std::uint32_t QSHARE_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t QSHARE_CREDENTIAL_CONFLICT = 1219;
inline constexpr std::uint32_t QSHARE_LOGON_FAILURE = 1326;
inline constexpr std::uint32_t QSHARE_NOT_CONNECTED = 2250;
inline constexpr std::uint32_t QSHARE_OPEN_FILES = 2401;

inline constexpr std::uint32_t QSHARE_DIRECTORY = 0x10;
inline constexpr std::uint32_t QSHARE_REPARSE_POINT = 0x400;

struct qshare_head {
  qshare_kind kind{};
  std::uint32_t result = 0;
  std::uint32_t size = 0;  // bytes of payload
};

struct qshare_info {
  std::uint64_t size = 0;  // 0 for a directory
  std::uint64_t number = 0;
  std::int64_t write_seconds = 0;
  std::uint32_t write_nanoseconds = 0;
  bool is_directory = false;
};

// Builds a frame: the head is filled in at the end. Appending may throw std::bad_alloc.
class qshare_frame {
 public:
  explicit qshare_frame(qshare_kind kind) : kind_(kind), bytes_(QSHARE_HEAD_BYTES, '\0') {}

  template <std::unsigned_integral T>
  void le(T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) bytes_ += static_cast<char>(value >> (8 * i) & 0xFFU);
  }
  // At most QSHARE_MOST_TEXT bytes.
  void text(std::string_view value) {
    le(static_cast<std::uint16_t>(value.size()));
    bytes_ += value;
  }
  void information(const qshare_info& about) {
    le(about.size);
    le(about.number);
    le(static_cast<std::uint64_t>(about.write_seconds));
    le(about.write_nanoseconds);
    le(static_cast<std::uint8_t>(about.is_directory));
  }
  void reserve(std::size_t bytes) { bytes_.reserve(bytes); }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  // All the memory that it takes, to be wiped when a password was in it.
  [[nodiscard]] std::span<char> memory() noexcept { return {bytes_.data(), bytes_.capacity()}; }

  // `behind`: bytes of the payload that are sent after these.
  [[nodiscard]] std::string_view finish(std::uint32_t result = 0, std::size_t behind = 0) noexcept {
    std::size_t at = 0;
    const auto put = [&](std::uint32_t value, std::size_t count) {
      for (std::size_t i = 0; i < count; ++i) bytes_[at++] = static_cast<char>(value >> (8 * i) & 0xFFU);
    };
    put(QSHARE_MAGIC, 2);
    put(QSHARE_VERSION, 2);
    put(static_cast<std::uint16_t>(kind_), 2);
    put(0, 2);
    put(result, 4);
    put(static_cast<std::uint32_t>(bytes_.size() - QSHARE_HEAD_BYTES + behind), 4);
    return bytes_;
  }
  // The same, without what was appended.
  [[nodiscard]] std::string_view fail(std::uint32_t result) noexcept {
    bytes_.resize(QSHARE_HEAD_BYTES);
    return finish(result);
  }

 private:
  qshare_kind kind_;
  std::string bytes_;
};

// False for anything but a head of this version.
[[nodiscard]] inline bool qshare_take_head(Bytes bytes, qshare_head& head) noexcept {
  ByteReader reader(bytes);
  std::uint16_t magic = 0;
  std::uint16_t version = 0;
  std::uint16_t kind = 0;
  std::uint16_t none = 0;
  if (!reader.le(magic) || !reader.le(version) || !reader.le(kind) || !reader.le(none)) return false;
  if (!reader.le(head.result) || !reader.le(head.size)) return false;
  head.kind = static_cast<qshare_kind>(kind);
  return magic == QSHARE_MAGIC && version == QSHARE_VERSION && none == 0;
}

// The text lies in the reader's bytes.
[[nodiscard]] inline bool qshare_take_text(ByteReader& reader, std::string_view& text) noexcept {
  std::uint16_t size = 0;
  Bytes bytes;
  if (!reader.le(size) || !reader.take(size, bytes)) return false;
  text = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  return true;
}

[[nodiscard]] inline bool qshare_take_info(ByteReader& reader, qshare_info& about) noexcept {
  std::uint64_t seconds = 0;
  std::uint8_t is_directory = 0;
  if (!reader.le(about.size) || !reader.le(about.number) || !reader.le(seconds) ||
      !reader.le(about.write_nanoseconds) || !reader.le(is_directory)) {
    return false;
  }
  about.write_seconds = static_cast<std::int64_t>(seconds);
  about.is_directory = is_directory != 0;
  return true;
}
