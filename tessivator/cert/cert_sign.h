// The signer lookup: which certificates signed a file, by its embedded signature and by the system's catalogues. The
// module behind it is a service of the host product; this product never starts it, so every lookup says so and ends.
#pragma once

#include "common/qlib/qcksum.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qtypes.h"

// One certificate in the module's own form; only the module that made it reads it.
struct cert_context;

// One signer found. The list belongs to the module; newest first.
struct cert_sign_node {
  cert_sign_node* next;
  std::uint16_t kind;  // 1 found through the embedded signature, 2 through a catalogue
  const cert_context* certificate;
};

struct cert_sign_list {
  cert_sign_node* head = nullptr;
  std::int32_t count = -1;  // -1: not gathered
};

// What the certificate module offers. Codes are those of common/qlib/qerr.h.
class cert_sign_module {
 public:
  virtual ~cert_sign_module() = default;
  // Lists the signers of the file; `embedded` other than 0 asks for the embedded signature too.
  [[nodiscard]] virtual qerr_t find_signers(const qchar* path, std::uint32_t embedded,
                                            cert_sign_list& list) noexcept = 0;
  // Takes back a list that find_signers filled.
  virtual void release(cert_sign_list& list) noexcept = 0;
  // SHA-1 over the certificate's public-key bits, and over the whole encoded certificate.
  [[nodiscard]] virtual qerr_t public_key_hash(const cert_context* certificate, qcksum& hash) noexcept = 0;
  [[nodiscard]] virtual qerr_t certificate_hash(const cert_context* certificate, qcksum& hash) noexcept = 0;
};

// Starts the lookup with `module`, which must outlive its use; null ends it. Not while a lookup runs.
void cert_sign_init(cert_sign_module* module) noexcept;

// Lists the signers of the file at `path` into `list`, to be given back with cert_sign_release. QERR_ARG1 and
// QERR_ARG3 without an argument, QERR_ALL_BITS (logged) while no module is started, else the module's code.
[[nodiscard]] qerr_t cert_sign_get_signed_file_cert_context(const qchar* path, std::uint32_t embedded,
                                                            cert_sign_list* list) noexcept;
void cert_sign_release(cert_sign_list* list) noexcept;
using CertSignListOwner = std::unique_ptr<cert_sign_list, FreeWith<cert_sign_release>>;

// SHA-1 of a listed certificate's public key, and of its whole encoded form. QERR_ARG1 and QERR_ARG2 without an
// argument, QERR_ALL_BITS while no module is started, else the module's code.
[[nodiscard]] qerr_t cert_utl_get_cert_pub_key_hash(const cert_context* certificate, qcksum* hash) noexcept;
[[nodiscard]] qerr_t cert_utl_get_cert_hash(const cert_context* certificate, qcksum* hash) noexcept;
