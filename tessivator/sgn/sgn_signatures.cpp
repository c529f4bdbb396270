#include "sgn/sgn_signatures.h"

#include <algorithm>

#include "blib/blib_cert.h"
#include "common/qlib/qder.h"
#include "msi/msi_signature.h"
#include "sgn/sgn_cab.h"
#include "sgn/sgn_der.h"
#include "sgn/sgn_ossl.h"
#include "sgn/sgn_types.h"

namespace {

constexpr std::uint32_t head_size = 128;

// One file's signatures, as they come.
class signature_walk {
 public:
  signature_walk(const sgn_signed_file& file, std::vector<sgn_problem>& problems, const sgn_signature_visitor& visit)
      : file_(file), problems_(problems), visit_(visit) {}

  qerr_t run(sgn_file_kind& kind) {
    if (file_.image != nullptr) {
      kind = sgn_file_kind::image;
      return walk_image();
    }
    if (file_.package != nullptr) {
      kind = sgn_file_kind::package;
      return take_buffer(msi_package_get_signature_alloc(file_.package, &buffer_, &length_));
    }
    std::array<std::byte, head_size> bytes{};
    Bytes head;
    if (!read_head(bytes, head)) return QERR_OK;
    if (sgn_text(head).starts_with("MSCF")) {
      kind = sgn_file_kind::cabinet;
      return take_buffer(sgn_cab_read_signature_alloc(file_.file, &buffer_, &length_));
    }
    return walk_signature_file(head, kind);
  }

 private:
  void problem(std::string_view code) { sgn_add_problem(problems_, code); }

  qerr_t take(Bytes signature) {
    sgn_facts facts;
    const qerr_t code = sgn_facts_read(signature, budget_, facts);
    return code != QERR_OK ? code : visit_(facts);
  }

  // What a reader has put into buffer_ and length_. Codes for a file without a signature are no problem.
  qerr_t take_buffer(qerr_t code) {
    const QmemPtr<std::byte> owner(buffer_);
    if (code == QERR_OK) return take({buffer_, buffer_ == nullptr ? 0 : length_});
    if (code == QERR_LOW_MEMORY) return code;
    if (code != QERR_NOT_FOUND && code != QERR_INVALID) problem("signatures_unreadable");
    return QERR_OK;
  }

  qerr_t walk_image() {
    blib_authenticode_list* list = nullptr;
    qerr_t code = blib_bin_get_authenticode_table_alloc(file_.image, &list);
    const BlibAuthenticodeOwner table(list);
    if (code == QERR_LOW_MEMORY || code == QERR_NOT_FOUND) return code == QERR_NOT_FOUND ? QERR_OK : code;
    if (code != QERR_OK) {
      problem("signatures_unreadable");
      return QERR_OK;
    }
    for (blib_authenticode_entry& entry : std::span(table->entries, table->count)) {
      if (entry.revision == SGN_PRIVATE_REVISION && entry.type == SGN_PRIVATE_TYPE) continue;
      if (budget_.signatures == 0) {
        problem("signatures_too_many");
        break;
      }
      blib_bin_load_authenticode_entry(file_.image, &entry);
      code = take({entry.buffer, entry.buffer == nullptr ? 0 : entry.length});
      blib_bin_unload_authenticode_entry(&entry);
      if (code != QERR_OK) break;
    }
    return code;
  }

  // Fills `out` from `offset` on as far as the file goes; false when a read fails.
  bool read(std::uint64_t offset, std::span<std::byte> out, Bytes& read) const noexcept {
    if (qfile_seek(file_.file, static_cast<std::int64_t>(offset), QFILE_FROM_START, nullptr) != QERR_OK) return false;
    std::size_t total = 0;
    std::uint32_t done = 1;
    while (total < out.size() && done != 0) {
      const auto wanted = static_cast<std::uint32_t>(out.size() - total);
      if (qfile_read(file_.file, out.data() + total, wanted, &done) != QERR_OK) return false;
      total += done;
    }
    read = out.first(total);
    return true;
  }

  bool read_head(std::span<std::byte> bytes, Bytes& head) {
    const bool done = read(0, bytes, head);
    if (!done) problem("signatures_unreadable");
    return done;
  }

  static bool is_signed_data(Bytes head) noexcept {
    constexpr std::string_view object = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02";
    const auto header = qder_read(head);
    return header && header->identifier == 0x30 && sgn_text(head.subspan(header->size)).starts_with(object);
  }

  // In an application package four letters come before the signature.
  qerr_t walk_signature_file(Bytes head, sgn_file_kind& kind) {
    const std::size_t skipped = sgn_text(head).starts_with("PKCX") ? 4 : 0;
    head = head.subspan(skipped);
    if (!is_signed_data(head)) return QERR_OK;
    constexpr sgn_oid trust_list("1.3.6.1.4.1.311.10.1");
    if (sgn_text(head).find(trust_list.content()) != std::string_view::npos) kind = sgn_file_kind::catalogue;
    std::uint64_t size = 0;
    if (qfile_size(file_.file, &size) != QERR_OK) size = 0;
    size -= std::min<std::uint64_t>(size, skipped);
    const std::uint64_t claimed = qder_signature_size(head, size);
    if (claimed > QDER_MOST_SIGNATURE) return take(head);  // its own length tells that it is too large
    const auto length = static_cast<std::size_t>(std::min(claimed, size));
    const QmemPtr<std::byte> buffer(static_cast<std::byte*>(qmem_alloc(std::max<std::size_t>(length, 1))));
    if (buffer == nullptr) return QERR_LOW_MEMORY;
    Bytes signature;
    if (!read(skipped, {buffer.get(), length}, signature)) problem("signatures_unreadable");
    return take(signature);
  }

  const sgn_signed_file& file_;
  std::vector<sgn_problem>& problems_;
  const sgn_signature_visitor& visit_;
  sgn_facts_budget budget_;
  std::byte* buffer_ = nullptr;
  std::uint32_t length_ = 0;
};

}  // namespace

qerr_t sgn_visit_signatures(const sgn_signed_file& file, sgn_file_kind& kind, std::vector<sgn_problem>& problems,
                            const sgn_signature_visitor& visit) noexcept {
  if (file.file == QFILE_INVALID && file.image == nullptr) return QERR_ARG1;
  kind = sgn_file_kind::other;
  problems.clear();
  return sgn_guarded([&] { return signature_walk(file, problems, visit).run(kind); });
}
