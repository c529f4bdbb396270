// The signer lookup: which certificates signed a file, by its embedded signature and by the catalogues of the system.
// The module behind it is a service of the host product. This product never starts it, so every lookup logs that and
// fails.
#pragma once

#include "common/qlib/qcksum.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// One certificate in the form of the module; only the module that made it reads it.
struct cert_context;

// One signer. The list belongs to the module, newest first.
struct cert_sign_node {
  cert_sign_node* next;
  std::uint16_t kind;  // 1 found through the embedded signature, 2 through a catalogue
  const cert_context* certificate;
};

struct cert_sign_list {
  cert_sign_node* head = nullptr;
  std::int32_t count = -1;  // -1: not gathered
};

// The operations of the certificate module. Codes are those of common/qlib/qerr.h.
class cert_sign_module {
 public:
  virtual ~cert_sign_module() = default;
  // Lists the signers of the file; `embedded` other than 0 asks for the embedded signature too.
  [[nodiscard]] virtual qerr_t find_signers(const qchar* path, std::uint32_t embedded,
                                            cert_sign_list& list) noexcept = 0;
  // Frees a list that find_signers filled.
  virtual void release(cert_sign_list& list) noexcept = 0;
  // SHA-1 of the public key bits of the certificate, and of the whole encoded certificate.
  [[nodiscard]] virtual qerr_t public_key_hash(const cert_context* certificate, qcksum& hash) noexcept = 0;
  [[nodiscard]] virtual qerr_t certificate_hash(const cert_context* certificate, qcksum& hash) noexcept = 0;
};

// Starts the lookup with `module`, which must live until the lookup is ended with null. Not during a lookup.
void cert_sign_init(cert_sign_module* module) noexcept;

// Lists the signers of the file at `path`; free `list` with cert_sign_release. QERR_ARG1 and QERR_ARG3 for a missing
// argument, QERR_ALL_BITS (logged) while no module is started, else the code of the module.
[[nodiscard]] qerr_t cert_sign_get_signed_file_cert_context(const qchar* path, std::uint32_t embedded,
                                                            cert_sign_list* list) noexcept;
void cert_sign_release(cert_sign_list* list) noexcept;
using CertSignListOwner = std::unique_ptr<cert_sign_list, FreeWith<cert_sign_release>>;

// SHA-1 of the public key of a listed certificate, and of its whole encoded form. QERR_ARG1 and QERR_ARG2 for a missing
// argument, QERR_ALL_BITS while no module is started, else the code of the module.
[[nodiscard]] qerr_t cert_utl_get_cert_pub_key_hash(const cert_context* certificate, qcksum* hash) noexcept;
[[nodiscard]] qerr_t cert_utl_get_cert_hash(const cert_context* certificate, qcksum* hash) noexcept;
