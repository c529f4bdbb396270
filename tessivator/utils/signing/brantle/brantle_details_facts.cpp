// What a file's signatures say, as parts of its line, and the lines of certificates and members before it.
#include <algorithm>
#include <new>

#include "blib/blib_headers.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qstr.h"
#include "details/details_text.h"
#include "msi/package_facts.h"
#include "record/version_facts.h"
#include "sgn/sgn_catalogue.h"
#include "sgn/sgn_cert_facts.h"
#include "sgn/sgn_signatures.h"
#include "utils/signing/brantle/brantle_details.h"

namespace {

// Certificates whose lines are remembered; beyond that their lines come again.
constexpr std::size_t most_told = 65536;

details_digest digestOf(const sgn_digest& digest) { return {digest.algorithm, digest.value}; }

details_signer signerOf(const sgn_signer_facts& facts) {
  return {facts.certificate,   facts.issuer,       facts.serial,     facts.digest_algorithm,
          facts.key_algorithm, facts.program_name, facts.program_url};
}

std::vector<std::string> digestsOf(const std::vector<sgn_certificate_place>& places) {
  std::vector<std::string> digests;
  digests.reserve(places.size());
  for (const sgn_certificate_place& place : places) digests.push_back(place.sha256);
  return digests;
}

details_signature signatureOf(const sgn_facts& facts) {
  details_signature signature;
  signature.content_type = facts.content_type;
  signature.digest_algorithm = facts.digest_algorithm;
  if (!facts.signed_digest.value.empty()) signature.signed_digest = digestOf(facts.signed_digest);
  for (const sgn_signer_facts& signer : facts.signers) signature.signers.push_back(signerOf(signer));
  signature.certificates = digestsOf(facts.certificates);
  for (const sgn_stamp_facts& stamp : facts.stamps) {
    signature.stamps.push_back({stamp.kind == sgn_stamp_kind::rfc3161 ? "rfc3161" : "countersignature", stamp.time,
                                signerOf(stamp.signer), digestsOf(stamp.certificates)});
  }
  for (const sgn_facts& nested : facts.nested) signature.nested.push_back(signatureOf(nested));
  return signature;
}

details_certificate certificateOf(const sgn_cert_facts& facts, Bytes der) {
  details_certificate line;
  line.sha256 = facts.sha256;
  line.sha1 = facts.sha1;
  line.tbs_sha1 = facts.tbs_sha1;
  line.tbs_sha256 = facts.tbs_sha256;
  line.tbs_sha384 = facts.tbs_sha384;
  line.subject = facts.subject;
  line.issuer = facts.issuer;
  line.serial = facts.serial;
  line.not_before = facts.not_before;
  line.not_after = facts.not_after;
  line.key_algorithm = facts.key_algorithm;
  line.key_bits = facts.key_bits;
  line.key_curve = facts.key_curve;
  line.signature_algorithm = facts.signature_algorithm;
  line.extended_usages = facts.extended_usages;
  line.ca = facts.ca;
  line.self_issued = facts.self_issued;
  line.common_name = facts.common_name;
  line.organization = facts.organization;
  line.country = facts.country;
  line.registration = facts.registration;
  line.name = facts.stem;
  line.der.assign(reinterpret_cast<const char*>(der.data()), der.size());
  for (const sgn_problem& problem : facts.problems) line.problems.push_back({std::string(problem.code), problem.count});
  return line;
}

details_kind kindOf(sgn_file_kind kind) {
  switch (kind) {
    case sgn_file_kind::image:
      return details_kind::image;
    case sgn_file_kind::package:
      return details_kind::package;
    case sgn_file_kind::cabinet:
      return details_kind::cabinet;
    case sgn_file_kind::catalogue:
      return details_kind::catalogue;
    case sgn_file_kind::other:
      break;
  }
  return details_kind::other;
}

// Of the problems that are no damage of the file: something was left out.
bool isCut(std::string_view code) {
  return code.ends_with("_cut") || code.ends_with("_too_long") || code.ends_with("_too_many") ||
         code.ends_with("_too_deep") || code.ends_with("_too_large");
}

std::string versionText(std::uint64_t version) {
  std::string text = std::to_string(version >> 48U);
  for (const unsigned shift : {32U, 16U, 0U}) text += '.' + std::to_string(version >> shift & 0xFFFFU);
  return text;
}

struct DigestKind {
  std::uint8_t kind;
  const char* name;
};
constexpr DigestKind digest_kinds[] = {{QCKSUM_MD5, "md5"},
                                       {QCKSUM_SHA1, "sha1"},
                                       {QCKSUM_SHA256, "sha256"},
                                       {QCKSUM_SHA384, "sha384"},
                                       {QCKSUM_SHA512, "sha512"}};

// What is signed is the file itself: SpcIndirectDataContent.
bool isOfFile(const details_signature& signature) {
  return signature.content_type == "1.3.6.1.4.1.311.2.1.4" && signature.signed_digest;
}

std::uint32_t kindsOf(const std::vector<details_signature>& signatures) {
  std::uint32_t kinds = 0;
  for (const details_signature& signature : signatures) {
    for (const DigestKind& one : digest_kinds) {
      if (isOfFile(signature) && signature.signed_digest->algorithm == one.name) kinds |= one.kind;
    }
    kinds |= kindsOf(signature.nested);
  }
  return kinds;
}

void compare(details_signature& signature, const std::vector<details_digest>& digests) {
  for (details_signature& nested : signature.nested) compare(nested, digests);
  if (!isOfFile(signature)) return;
  for (const details_digest& digest : digests) {
    if (digest.algorithm != signature.signed_digest->algorithm) continue;
    signature.signed_digest_matches = digest.value == signature.signed_digest->value;
  }
}

void throwUnless(qerr_t code) {
  if (code != QERR_OK) throw std::bad_alloc();  // there is no other failure
}

}  // namespace

template <class Problem>
void BrantleDetails::addProblems(const std::vector<Problem>& problems) {
  for (const Problem& problem : problems) {
    if (isCut(problem.code)) whole_ = false;
    addProblem(problem.code, problem.count);
  }
}

void BrantleDetails::setInstallerRule(const char* rule) noexcept {
  step([&] {
    if (rule != nullptr) imagePart().installer_rule = rule;
  });
}

details_image& BrantleDetails::imagePart() { return line_.image ? *line_.image : line_.image.emplace(); }

void BrantleDetails::describeImage(blib_bin* image) {
  details_image& part = imagePart();
  part.machine = blib_bin_machine(image);
  part.subsystem = blib_bin_subsystem(image);
  part.link_time = details_time_text(blib_bin_link_time(image));
  record_version_facts facts;
  const qerr_t code = record_get_version_facts(image, facts);
  throwUnless(code == QERR_LOW_MEMORY ? code : QERR_OK);
  if (code != QERR_OK) whole_ = false;
  if (facts.file_version) part.fixed_file_version = versionText(*facts.file_version);
  for (const record_version_table& table : facts.tables) {
    details_version_table& out = part.version_tables.emplace_back();
    out.language = table.language;
    out.code_page = table.code_page;
    for (const auto& [name, value] : table.values) out.values.push_back({qstr_to_utf8(name), qstr_to_utf8(value)});
  }
  addProblems(facts.problems);
}

void BrantleDetails::setPackage(const msi_package_facts& facts) noexcept {
  step([&] {
    details_package& package = line_.package.emplace();
    package.product_code = qstr_to_utf8(facts.product_code.text);
    package.upgrade_code = qstr_to_utf8(facts.upgrade_code.text);
    package.product_language = qstr_to_utf8(facts.product_language.text);
    package.package_code = qstr_to_utf8(facts.package_code.text);
    package.architecture = qstr_to_utf8(facts.architecture.text);
    package.languages = qstr_to_utf8(facts.languages.text);
  });
}

void BrantleDetails::describeSignatures(qfile_t file, blib_bin* image, msi_package* package) {
  if (described_) return;
  described_ = true;
  sgn_file_kind kind = sgn_file_kind::other;
  std::vector<sgn_problem> problems;
  const qerr_t code = sgn_visit_signatures({file, image, package}, kind, problems, [&](const sgn_facts& facts) {
    addProblems(facts.problems);
    for (const sgn_certificate_place& place : facts.certificates) tellCertificate(place);
    tellInner(facts);
    if (!facts.list.empty()) tellMembers(facts.list);
    line_.signatures.push_back(signatureOf(facts));
    return code_;
  });
  if (code_ != QERR_OK) return;  // the file cannot be written
  throwUnless(code);
  line_.kind = kindOf(kind);
  addProblems(problems);
}

// A listed certificate may be one that no line tells: of a signature beyond those that are described.
void BrantleDetails::keepDigestsThatWereTold() {
  for (details_listed& listed : line_.certificates) {
    if (!told_.contains(listed.sha256)) listed.sha256.clear();
  }
}

// Certificates of time stamps and of signatures inside.
void BrantleDetails::tellInner(const sgn_facts& facts) {
  for (const sgn_stamp_facts& stamp : facts.stamps) {
    for (const sgn_certificate_place& place : stamp.certificates) tellCertificate(place);
  }
  for (const sgn_facts& nested : facts.nested) {
    addProblems(nested.problems);
    for (const sgn_certificate_place& place : nested.certificates) tellCertificate(place);
    tellInner(nested);
  }
}

void BrantleDetails::tellCertificate(const sgn_certificate_place& place) {
  if (told_.size() >= most_told) told_.clear();
  if (!told_.insert(place.sha256).second) return;
  sgn_cert_facts facts;
  throwUnless(sgn_cert_facts_read(place.der, facts));
  put(certificateOf(facts, place.der));
}

void BrantleDetails::tellMembers(Bytes list) {
  sgn_catalogue catalogue(list);
  details_members part;
  part.ordinal = line_.ordinal;
  line_.catalogue.emplace().members = catalogue.count();
  sgn_member_facts member;
  qerr_t code = QERR_OK;
  do {
    code = catalogue.next(member);
    if (code == QERR_OK) part.members.push_back(digestOf(member.digest));
    if (part.members.size() == DETAILS_LARGEST_MEMBERS || (code == QERR_END && !part.members.empty())) {
      put(part);
      part.members.clear();
    }
  } while (code == QERR_OK);
  if (code != QERR_END) throwUnless(code);
  if (catalogue.is_damaged()) addProblem("list_damaged", 1);
}

// In the algorithms of the signatures, which are read for that.
const qcksum_tap* BrantleDetails::beginDigests(blib_bin* image) noexcept {
  step([&] {
    describeSignatures(image->file, image, nullptr);
    kinds_ = kindsOf(line_.signatures);
    if (kinds_ == 0) kinds_ = QCKSUM_SHA1 | QCKSUM_SHA256;
    const qerr_t code = authenticode_.begin(image, kinds_);
    if (code == QERR_OK) return;
    throwUnless(code == QERR_LOW_MEMORY ? code : QERR_OK);
    kinds_ = 0;
    addProblem("digests_impossible");
  });
  return code_ == QERR_OK && kinds_ != 0 ? authenticode_.tap() : nullptr;
}

void BrantleDetails::endDigests() {
  for (const DigestKind& one : digest_kinds) {
    if ((kinds_ & one.kind) == 0) continue;
    qcksum digest{};
    const qerr_t code = authenticode_.finish(one.kind, &digest);
    throwUnless(code == QERR_LOW_MEMORY ? code : QERR_OK);
    if (code == QERR_OK) {
      line_.authenticode_digests.push_back({one.name, details_hex(std::span(digest.value).first(digest.length))});
    } else {
      addProblem("digests_unreadable");
      whole_ = false;
    }
  }
  for (details_signature& signature : line_.signatures) compare(signature, line_.authenticode_digests);
}
