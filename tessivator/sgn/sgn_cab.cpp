// The header of a cabinet (little-endian, from the start of the file):
//
//   0   4  signature "MSCF"
//   30  2  flags; bit 2: the reserve fields below are present
//   36  2  cbCFHeader: size of the per-cabinet reserve
//   38  1  cbCFFolder
//   39  1  cbCFData
//   40     the per-cabinet reserve; of a signed cabinet: 4 bytes, u32 file offset and u32 length of the signature
#include "sgn/sgn_cab.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "blib/blib_bin.h"
#include "common/qlib/qbytes.h"
#include "common/qlib/qder.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qmem.h"
#include "sgn/sgn_pkcs7.h"
#include "sgn/sgn_types.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

// All lines of this source are logged under one function name, whichever helper finds the fault; nothing is logged for
// a cabinet without a name.
#define CAB_LOG(...) \
  if (cabinet.path != nullptr) QLOG_AS(QLOG_ERROR, "sgn_extract_cab_cert_alloc", __VA_ARGS__)

namespace {

constexpr std::size_t header_size = 36;
constexpr std::size_t flags_offset = 30;
constexpr std::uint16_t flag_reserve_present = 0x0004;
constexpr std::size_t reserve_fields_size = 4;
constexpr std::uint64_t record_offset = 4;
constexpr std::uint64_t record_length = 8;
constexpr std::uint16_t record_size = 12;

// An open cabinet of the caller and its name in log lines; null for no lines.
struct cabinet_file {
  const qchar* path;
  qfile_t file;
};

struct signature_place {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
};

qerr_t not_signed(const cabinet_file& cabinet) noexcept {
  CAB_LOG(u"Cab file %s is not signed.\n", cabinet.path);
  return QERR_INVALID;
}

// Fills `out` from the current position; beyond the end of the file it stays unchanged.
qerr_t read_part(const cabinet_file& cabinet, std::span<std::byte> out) noexcept {
  while (!out.empty()) {
    std::uint32_t done = 0;
    const qerr_t code = qfile_read(cabinet.file, out.data(), static_cast<std::uint32_t>(out.size()), &done);
    if (code != QERR_OK) {
      CAB_LOG(u"Failed to read from file %s. Error = %d\n", cabinet.path, code);
      return code;
    }
    if (done == 0) break;
    out = out.subspan(std::min<std::size_t>(done, out.size()));
  }
  return QERR_OK;
}

qerr_t seek(const cabinet_file& cabinet, std::uint32_t offset) noexcept {
  std::uint64_t position = 0;
  const qerr_t code = qfile_seek(cabinet.file, offset, QFILE_FROM_START, &position);
  if (code != QERR_OK) CAB_LOG(u"Failed to seek file %s. Error = %d\n", cabinet.path, code);
  return code;
}

// Reads the fixed header and the sizes after it.
qerr_t read_reserve_size(const cabinet_file& cabinet, std::uint16_t& reserve_size) noexcept {
  std::array<std::byte, header_size> header{};
  if (const qerr_t code = seek(cabinet, 0); code != QERR_OK) return code;
  if (const qerr_t code = read_part(cabinet, header); code != QERR_OK) return code;
  if (std::memcmp(header.data(), "MSCF", 4) != 0) {
    CAB_LOG(u"%s is not a valid cab file\n", cabinet.path);
    return QERR_INVALID;
  }
  const auto flags = qbytes_le<std::uint16_t>(header, flags_offset);
  if ((flags.value_or(0) & flag_reserve_present) == 0) return not_signed(cabinet);

  std::array<std::byte, reserve_fields_size> fields{};
  if (const qerr_t code = read_part(cabinet, fields); code != QERR_OK) return code;
  reserve_size = qbytes_le<std::uint16_t>(fields, 0).value_or(0);
  // A reserve too small for the signature record is used for something else.
  return reserve_size < record_size ? not_signed(cabinet) : QERR_OK;
}

qerr_t read_place(const cabinet_file& cabinet, std::uint16_t reserve_size, signature_place& place) noexcept {
  const QmemPtr<std::byte> reserve(static_cast<std::byte*>(qmem_calloc(1, reserve_size)));
  if (!reserve) {
    CAB_LOG(u"Failed to allocate memory.\n");
    return QERR_LOW_MEMORY;
  }
  const std::span<std::byte> area(reserve.get(), reserve_size);
  if (const qerr_t code = read_part(cabinet, area); code != QERR_OK) return code;
  place.offset = qbytes_le<std::uint32_t>(area, record_offset).value_or(0);
  place.length = qbytes_le<std::uint32_t>(area, record_length).value_or(0);
  return QERR_OK;
}

// Cuts the range to the file, so a cabinet cannot request more memory than it has bytes.
qerr_t limit_to_file(const cabinet_file& cabinet, signature_place& place) noexcept {
  std::uint64_t size = 0;
  if (const qerr_t code = qfile_size(cabinet.file, &size); code != QERR_OK) {
    CAB_LOG(u"Failed to read from file %s. Error = %d\n", cabinet.path, code);
    return code;
  }
  const std::uint64_t rest = place.offset < size ? size - place.offset : 0;
  place.length = static_cast<std::uint32_t>(std::min<std::uint64_t>(place.length, rest));
  return QERR_OK;
}

// Cuts the range to the signature. A signature that is too long keeps its length and is not read; decoding refuses it.
qerr_t limit_to_signature(const cabinet_file& cabinet, signature_place& place, bool& is_too_long) noexcept {
  std::array<std::byte, QDER_HEAD> head{};
  if (const qerr_t code = seek(cabinet, place.offset); code != QERR_OK) return code;
  if (const qerr_t code = read_part(cabinet, head); code != QERR_OK) return code;
  const std::uint64_t size = qder_signature_size(head, place.length);
  is_too_long = size > QDER_MOST_SIGNATURE;
  const std::uint64_t length = is_too_long ? size : std::min<std::uint64_t>(size, place.length);
  place.length = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, UINT32_MAX));
  return QERR_OK;
}

qerr_t read_signature(const cabinet_file& cabinet, signature_place& place, QmemPtr<std::byte>& signature) noexcept {
  bool is_too_long = false;
  if (const qerr_t code = limit_to_signature(cabinet, place, is_too_long); code != QERR_OK) return code;
  if (is_too_long) return QERR_OK;
  signature.reset(static_cast<std::byte*>(qmem_calloc(1, place.length)));
  if (!signature) {
    CAB_LOG(u"Failed to allocate memory\n");
    return QERR_LOW_MEMORY;
  }
  if (const qerr_t code = seek(cabinet, place.offset); code != QERR_OK) return code;
  return read_part(cabinet, {signature.get(), place.length});
}

qerr_t find_signature(const cabinet_file& cabinet, signature_place& place, QmemPtr<std::byte>& signature) noexcept {
  std::uint16_t reserve_size = 0;
  qerr_t code = read_reserve_size(cabinet, reserve_size);
  if (code == QERR_OK) code = read_place(cabinet, reserve_size, place);
  if (code == QERR_OK) code = limit_to_file(cabinet, place);
  return code != QERR_OK ? code : read_signature(cabinet, place, signature);
}

}  // namespace

qerr_t sgn_cab_read_signature_alloc(qfile_t file, std::byte** out, std::uint32_t* length) noexcept {
  if (file == QFILE_INVALID) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  signature_place place;
  QmemPtr<std::byte> signature;
  if (const qerr_t code = find_signature({nullptr, file}, place, signature); code != QERR_OK) return code;
  *length = place.length;
  *out = signature.release();
  return QERR_OK;
}

qerr_t sgn_extract_cab_cert_of_file_alloc(const qchar* path, blib_file& opened, sgn_p7** out,
                                          sgn_store_cache* cache) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG3;
  qerr_t code = blib_file_open(opened, path);
  const cabinet_file cabinet{path, opened.file.get()};
  if (code != QERR_OK) {
    CAB_LOG(u"Failed to open file %s. Error = %d\n", path, code);
    return code;
  }
  signature_place place;
  QmemPtr<std::byte> signature;
  code = find_signature(cabinet, place, signature);
  if (code != QERR_OK) return code;

  sgn_p7* decoded = nullptr;
  code = sgn_decrypt_certificate_ex(signature.get(), place.length, &decoded, cache);
  SgnP7Owner p7(decoded);
  if (code != QERR_OK) {
    CAB_LOG(u"Failed to decrypt certificate. Error = %d\n", code);
    return code;
  }
  return sgn_guarded([&] {
    p7->source = std::make_shared<const std::u16string>(path);
    *out = p7.release();
    return QERR_OK;
  });
}

qerr_t sgn_extract_cab_cert_alloc(const qchar* path, sgn_p7** out) noexcept {
  if (path == nullptr) return QERR_ARG1;
  if (out == nullptr) return QERR_ARG2;
  blib_file opened;
  return sgn_extract_cab_cert_of_file_alloc(path, opened, out, nullptr);
}
