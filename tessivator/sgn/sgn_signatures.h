// The signatures of a file, whatever it is, with the facts of each.
#pragma once

#include "common/qlib/qfile.h"
#include "sgn/sgn_facts.h"

class msi_package;  // msi/msi_package.h
struct blib_bin;    // blib/blib_bin.h

enum class sgn_file_kind : std::uint8_t { other, image, package, cabinet, catalogue };

// An open file, with the image or package in it.
struct sgn_signed_file {
  qfile_t file = QFILE_INVALID;
  blib_bin* image = nullptr;       // null: it is not one
  msi_package* package = nullptr;  // the same
};

// Called with each signature in the file's order; one is held at a time, and its places are those of this call. A code
// other than 0 ends the walk. May throw std::bad_alloc.
using sgn_signature_visitor = std::function<qerr_t(const sgn_facts& facts)>;

// Tells what the file is, and visits its signatures: of an image those of its attribute certificate table, of a package
// its signature stream's, of a cabinet the one that its header names; any other file that begins with PKCS#7 signed
// data, perhaps behind "PKCX", is a signature itself, and a catalogue when it signs a certificate trust list. A
// signature, a catalogue too, is read up to 16 MiB; a longer one is visited as undecodable. `problems` gets what
// belongs to no signature: "signatures_unreadable", "signatures_too_many". The file's position moves. Returns the
// visitor's code, QERR_LOW_MEMORY, QERR_ARG1 without a file; a file without signatures gives QERR_OK and no visit.
[[nodiscard]] qerr_t sgn_visit_signatures(const sgn_signed_file& file, sgn_file_kind& kind,
                                          std::vector<sgn_problem>& problems,
                                          const sgn_signature_visitor& visit) noexcept;
