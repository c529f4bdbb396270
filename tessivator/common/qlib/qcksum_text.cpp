// Checksums as hexadecimal text, and their comparison.
#include <algorithm>
#include <array>
#include <cstring>

#include "common/qlib/qcksum.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"

namespace {

constexpr std::uint32_t module_id = QLOG_QCKSUM;
#undef QLOG_SOURCE
#define QLOG_SOURCE "qcksum.cpp"
constexpr const qchar* hex_digits = u"0123456789abcdef";

void put_hex(qchar* text, const std::uint8_t* bytes, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    text[2 * i] = hex_digits[bytes[i] >> 4];
    text[2 * i + 1] = hex_digits[bytes[i] & 15];
  }
}

// Value bytes of a kind, 0 for an unknown one.
std::size_t length_of(std::uint8_t type) noexcept {
  switch (type) {
    case QCKSUM_SUM16:
      return 2;
    case QCKSUM_MD5:
      return QCKSUM_MD5_BIN_LEN;
    case QCKSUM_SHA1:
      return QCKSUM_SHA1_BIN_LEN;
    case QCKSUM_SHA256:
      return QCKSUM_SHA256_BIN_LEN;
    case QCKSUM_SHA384:
      return QCKSUM_SHA384_BIN_LEN;
    case QCKSUM_SHA512:
      return QCKSUM_SHA512_BIN_LEN;
    default:
      return 0;
  }
}

// The value of a hexadecimal digit in either case; any other character gives some number.
std::uint32_t digit_value(qchar unit) noexcept {
  const std::uint32_t upper = unit >= u'a' && unit <= u'z' ? unit - 32U : unit;
  const std::uint32_t value = upper - u'0';
  return static_cast<std::int32_t>(value) > 9 ? value - 7 : value;
}

}  // namespace

std::uint32_t qcksum_compare(const qcksum* a, const qcksum* b) noexcept {
  if (a == nullptr || b == nullptr || a->type != b->type) return 0;
  const std::size_t length = length_of(a->type);
  return length != 0 && std::memcmp(a->value, b->value, length) == 0 ? 1 : 0;
}

qerr_t qcksum_to_qstr(qchar* text, std::size_t text_size_bytes, const qcksum* record) noexcept {
  if (text == nullptr) return QERR_ARG1;
  if (record == nullptr) return QERR_ARG3;
  qmem_zero(text, text_size_bytes);
  const std::size_t units = text_size_bytes / sizeof(qchar);
  const std::size_t room = units == 0 ? 0 : (units - 1) / 2;
  put_hex(text, record->value, std::min({std::size_t{record->length}, sizeof(record->value), room}));
  return QERR_OK;
}

qerr_t qcksum2_to_qstr(qchar* text, std::size_t text_size_bytes, const qcksum* record) noexcept {
  return qcksum_to_qstr(text, text_size_bytes, record);
}

qerr_t qcksum_SHA1_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept {
  if (binary == nullptr || text == nullptr || binary_length != QCKSUM_SHA1_BIN_LEN) {
    QLOG(QLOG_ERROR, u"qcksum_SHA1_to_qstr - Invalid parameters  buf_len_bytes: %d , QCKSUM_SHA1_BIN_LEN= %d",
         binary_length, QCKSUM_SHA1_BIN_LEN);
    return QERR_INVALID;
  }
  put_hex(text, binary, binary_length);
  return QERR_OK;
}

qerr_t qcksum_MD5_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept {
  if (binary == nullptr || text == nullptr || binary_length != QCKSUM_MD5_BIN_LEN) {
    QLOG(QLOG_ERROR, u"qcksum_MD5_to_qstr - Invalid parameters  buf_len_bytes: %d , QCKSUM_MD5_BIN_LEN= %d",
         binary_length, QCKSUM_MD5_BIN_LEN);
    return QERR_INVALID;
  }
  put_hex(text, binary, binary_length);
  return QERR_OK;
}

qerr_t qcksum_SHA2_to_qstr(const std::uint8_t* binary, qchar* text, std::uint32_t binary_length) noexcept {
  if (binary == nullptr || text == nullptr || binary_length != QCKSUM_SHA256_BIN_LEN) {
    // The function column has always had this name, and people search their logs for it.
    QLOG_AS(QLOG_ERROR, "qcksum2_SHA2_to_qstr",
            u"qcksum_SHA2_to_qstr - Invalid parameters  buf_len_bytes: %d , QCKSUM_SHA256_BIN_LEN= %d", binary_length,
            QCKSUM_SHA256_BIN_LEN);
    return QERR_INVALID;
  }
  put_hex(text, binary, binary_length);
  return QERR_OK;
}

qerr_t qstr_to_qcksum(const qchar* text, qcksum* record) noexcept {
  if (text == nullptr) return QERR_ARG1;
  if (record == nullptr) return QERR_ARG2;
  for (std::size_t i = 0; i < sizeof(record->value) && text[2 * i] != 0 && text[2 * i + 1] != 0; ++i) {
    record->value[i] = static_cast<std::uint8_t>(digit_value(text[2 * i]) * 16 + digit_value(text[2 * i + 1]));
  }
  return QERR_OK;
}
