// The members of a catalogue: a certificate trust list that names files by their digests.
//
// CertificateTrustList ::= SEQUENCE { version INTEGER DEFAULT 0, subjectUsage SEQUENCE OF OBJECT IDENTIFIER,
//                                     listIdentifier OCTET STRING OPTIONAL, sequenceNumber INTEGER OPTIONAL,
//                                     thisUpdate, nextUpdate OPTIONAL, subjectAlgorithm AlgorithmIdentifier,
//                                     trustedSubjects SEQUENCE OF TrustedSubject OPTIONAL, extensions [0] OPTIONAL }
// TrustedSubject       ::= SEQUENCE { subjectIdentifier OCTET STRING, subjectAttributes SET OF Attribute OPTIONAL }
#pragma once

#include "sgn/sgn_facts.h"

struct sgn_member_facts {
  // Of the member's SpcIndirectDataContent attribute; without one, the identifier of a list of the second version,
  // which is a digest itself.
  sgn_digest digest;
};

// Reads members one after the other over borrowed bytes; takes no memory of its own. Used by one thread at a time.
class sgn_catalogue {
 public:
  // `list` as sgn_facts::list has it. What is no list has no members.
  explicit sgn_catalogue(Bytes list) noexcept;

  // How many members are still to come: walks the list. Unreadable bytes end it.
  [[nodiscard]] std::uint64_t count() const noexcept;

  // The next member; QERR_END behind the last, QERR_LOW_MEMORY. A member without a digest has an empty one.
  [[nodiscard]] qerr_t next(sgn_member_facts& member) noexcept;

  // Whether the list ended early, in the middle of a member or of itself: known once the last member was read.
  [[nodiscard]] bool is_damaged() const noexcept;

 private:
  Bytes members_;  // that are still to come
  bool raw_identifiers_ = false;
  bool damaged_ = false;
};
