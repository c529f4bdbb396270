// Signatures through the installer's subject interface package.
#include "common/qlib/qsys_winnt_user.h"
// Need the types of windows.h.
#include <wincrypt.h>

#include <mssip.h>

#include <algorithm>
#include <new>

#include "common/qlib/qder.h"
#include "common/qlib/qmem.h"
#include "msi/msi_path_winnt.h"
#include "msi/msi_signature.h"
#include "msi/package_object.h"
#include "msi/signature_stream.h"

namespace {

// {000C10F1-0000-0000-C000-000000000046}: the subject type of installer packages.
constexpr GUID package_subject{0x000C10F1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
static_assert(sizeof(SIP_SUBJECTINFO) == 128);

using get_message_fn = BOOL(WINAPI*)(SIP_SUBJECTINFO*, DWORD*, DWORD, DWORD*, BYTE*);

// The installer's subject interface package, loaded from the system's folder for one call.
class message_reader {
 public:
  message_reader() noexcept : module_(LoadLibraryExW(L"msisip.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
    if (module_ != nullptr) {
      get_ =
          reinterpret_cast<get_message_fn>(reinterpret_cast<void*>(GetProcAddress(module_, "MsiSIPGetSignedDataMsg")));
    }
    if (get_ == nullptr) code_ = qerr_from_win32(GetLastError());
  }
  message_reader(const message_reader&) = delete;
  message_reader& operator=(const message_reader&) = delete;
  ~message_reader() {
    if (module_ != nullptr) FreeLibrary(module_);
  }
  [[nodiscard]] qerr_t code() const noexcept { return code_; }
  // One call; `buffer` null asks for the length.
  [[nodiscard]] bool call(SIP_SUBJECTINFO& subject, DWORD& length, std::byte* buffer) const noexcept {
    DWORD encoding = 0;
    return get_ != nullptr && get_(&subject, &encoding, 0, &length, reinterpret_cast<BYTE*>(buffer)) != FALSE;
  }

 private:
  HMODULE module_;
  get_message_fn get_ = nullptr;
  qerr_t code_ = QERR_OK;
};

// By the system's reader.
qerr_t read_message(const message_reader& reader, const msi_system_path& path, QmemPtr<std::byte>& bytes,
                    std::uint32_t& length) noexcept {
  GUID type = package_subject;
  SIP_SUBJECTINFO subject{};
  subject.cbSize = sizeof(subject);
  subject.pgSubjectType = &type;
  subject.pwsFileName = qsys_wide(path.text().c_str());
  subject.dwEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  DWORD size = 0;
  if (!reader.call(subject, size, nullptr)) return QERR_NOT_FOUND;
  bytes.reset(static_cast<std::byte*>(qmem_calloc(size, 1)));
  if (!bytes) return QERR_LOW_MEMORY;
  if (size == 0 || !reader.call(subject, size, bytes.get())) return QERR_NOT_FOUND;
  const Bytes head(bytes.get(), std::min<std::size_t>(QDER_HEAD, size));
  length = static_cast<std::uint32_t>(std::min<std::uint64_t>(qder_signature_size(head, size), size));
  return QERR_OK;
}

}  // namespace

// A missing reader is told for every file, be it a package or not. What the system's reader refuses, may not see (it
// trusts the streams beside the signature, too) or would hand out whole whatever its length is read here.
qerr_t msi_package_get_signature_alloc(msi_package* package, std::byte** out, std::uint32_t* length) noexcept try {
  if (out == nullptr) return QERR_ARG2;
  if (length == nullptr) return QERR_ARG3;
  const message_reader reader;
  if (reader.code() != QERR_OK) return reader.code();
  if (package == nullptr) return QERR_NOT_FOUND;
  const auto stream = signature_stream_open(*package);
  if (!stream) return QERR_NOT_FOUND;
  QmemPtr<std::byte> bytes;
  std::uint32_t size = 0;
  qerr_t code = QERR_NOT_FOUND;
  if (stream->size() < MSI_MAX_SIGNATURE && package->compound().has_whole_streams(u'\5')) {
    const auto path = msi_system_path::of(*package);
    if (path) code = read_message(reader, *path, bytes, size);
  }
  if (code == QERR_NOT_FOUND) code = signature_message_read(*stream, bytes, size);
  if (code != QERR_OK) return code;
  *out = bytes.release();
  *length = size;
  return QERR_OK;
} catch (const std::bad_alloc&) {
  return QERR_LOW_MEMORY;
}
